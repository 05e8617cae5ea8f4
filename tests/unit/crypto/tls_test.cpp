#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <thread>

#include "crypto_support.h"

namespace tolven::test {
namespace {

// A TLS server on one end of a socket pair, with a certificate of the world.
class Server {
 public:
  using Script = std::function<void(SSL*)>;

  Server(const std::string& name, Script script) : m_script(std::move(script)) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_ends), 0);
    m_thread = std::thread([this, name] { Run(name); });
  }
  ~Server() {
    close(m_ends[0]);
    m_thread.join();
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  int socket() const { return m_ends[0]; }

 private:
  void Run(const std::string& name) {
    signal(SIGPIPE, SIG_IGN);  // this end uses OpenSSL's own sockets
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    SSL_CTX_use_certificate_chain_file(context, Pki().File(name + ".chain").c_str());
    SSL_CTX_use_PrivateKey_file(context, Pki().File(name + ".key").c_str(), SSL_FILETYPE_PEM);
    SSL* ssl = SSL_new(context);
    SSL_set_fd(ssl, m_ends[1]);
    m_script(ssl);
    SSL_free(ssl);
    SSL_CTX_free(context);
    close(m_ends[1]);
  }

  Script m_script;
  int m_ends[2] = {-1, -1};
  std::thread m_thread;
};

void Echo(SSL* ssl) {
  if (SSL_accept(ssl) != 1) return;
  char buffer[64];
  for (int got = 0; (got = SSL_read(ssl, buffer, sizeof buffer)) > 0;) SSL_write(ssl, buffer, got);
  SSL_shutdown(ssl);
}

void Silent(SSL* ssl) {
  char byte = 0;
  while (read(SSL_get_fd(ssl), &byte, 1) > 0) {
  }
}

void Tear(SSL* ssl) {
  SSL_accept(ssl);
}  // and closes without a word

// A client session that releases what it made.
struct Client {
  QelSSLContext* context = nullptr;
  QelSSLSession* session = nullptr;
  int rc = DKV_OK;

  Client(int socket, const char* profile, const char* host, int timeoutMs = 5000) {
    rc = QelLibSSLInit(Lib(), Profile(profile).c_str(), nullptr, &context);
    if (rc == DKV_OK) rc = QelLibSSLSessionInit(Lib(), context, socket, host, timeoutMs, &session);
    if (rc == DKV_OK) rc = QelLibSSLSessionStart(Lib(), session);
  }
  ~Client() {
    QelLibSSLSessionClose(Lib(), session);
    QelLibSSLDone(Lib(), context);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
};

class Tls : public ::testing::Test {
 protected:
  void SetUp() override {
    Pki().Run("cat server.crt inter.crt > server.chain; cat foreign.crt > foreign.chain");
  }
};

struct Row {
  const char* server;
  const char* profile;
  const char* host;
  int rc;
};

TEST_F(Tls, WhomToTrust) {
  const Row rows[] = {
      {"server", "trust.pse", "tsa.test", DKV_OK},
      {"server", "trust.pse", "127.0.0.1", DKV_OK},
      {"server", "signer.pse", "tsa.test", DKV_OK},  // with a key to show
      {"server", "trust.pse", "other.test", DKV_ERR_TLS_HOST},
      {"server", "trust.pse", "127.0.0.2", DKV_ERR_TLS_HOST},
      {"server", "other.pse", "tsa.test", DKV_ERR_TLS_CERT},
      {"foreign", "trust.pse", "tsa.test", DKV_ERR_TLS_CERT},
      {"server", "missing.pse", "tsa.test", DKV_ERR_NO_PSE},
      {"server", "signer.p12", "tsa.test", DKV_ERR_PASSWORD},
      {"server", "trust.pse", "", DKV_ERR_ARGUMENT},
  };
  for (const Row& row : rows) {
    const Server server(row.server, Echo);
    const Client client(server.socket(), row.profile, row.host);
    EXPECT_EQ(Name(client.rc), Name(row.rc)) << row.server << " " << row.profile << " " << row.host;
  }
}

TEST_F(Tls, SilenceEnds) {
  const Server server("server", Silent);
  const Client client(server.socket(), "trust.pse", "tsa.test", 50);
  EXPECT_EQ(Name(client.rc), "DKV_ERR_TIMEOUT");
}

TEST_F(Tls, TheProperEndAndATornOne) {
  for (const bool proper : {true, false}) {
    const Server server("server", [proper](SSL* ssl) {
      Tear(ssl);
      if (proper) SSL_shutdown(ssl);
    });
    const Client client(server.socket(), "trust.pse", "tsa.test");
    ASSERT_EQ(Name(client.rc), "DKV_OK");
    char byte = 0;
    std::size_t done = 1;
    const int rc = QelLibSSLSessionRead(Lib(), client.session, &byte, 1, &done);
    EXPECT_EQ(Name(rc), proper ? "DKV_OK" : "DKV_ERR_TLS");
    EXPECT_EQ(done, 0U);
  }
}

// Writing to a peer that has gone is an error, not the end of the program.
TEST_F(Tls, NoSignalWhenThePeerHasGone) {
  signal(SIGPIPE, SIG_DFL);
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  close(ends[1]);
  const Client client(ends[0], "trust.pse", "tsa.test");
  EXPECT_EQ(Name(client.rc), "DKV_ERR_TLS");
  close(ends[0]);
}

}  // namespace
}  // namespace tolven::test

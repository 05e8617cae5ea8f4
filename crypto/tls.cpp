#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <climits>

#include "api.h"
#include "chain.h"
#include "pse.h"
#include "socket_bio.h"

// TLS client sessions for time stamp services, trusting what a profile trusts and nothing else.
namespace tolven::crypto {
namespace {

using Clock = std::chrono::steady_clock;
using SslCtxPtr = std::unique_ptr<SSL_CTX, Releaser<SSL_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, Releaser<SSL_free>>;

// Puts a descriptor into non-blocking mode and back.
class NonBlocking {
 public:
  explicit NonBlocking(int fd) : m_fd(fd), m_flags(fcntl(fd, F_GETFL)) {
    if (m_flags < 0 || fcntl(fd, F_SETFL, m_flags | O_NONBLOCK) != 0)
      throw Failure(DKV_ERR_ARGUMENT, "socket");
  }
  ~NonBlocking() { fcntl(m_fd, F_SETFL, m_flags); }
  NonBlocking(const NonBlocking&) = delete;
  NonBlocking& operator=(const NonBlocking&) = delete;

 private:
  int m_fd;
  int m_flags;
};

}  // namespace
}  // namespace tolven::crypto

struct QelSSLContext {
  tolven::crypto::SslCtxPtr context;
};

struct QelSSLSession {
  QelSSLSession(int fd, int timeout) : mode(fd), socket(fd), timeoutMs(timeout) {}

  tolven::crypto::NonBlocking mode;
  tolven::crypto::SslPtr ssl;
  int socket;
  int timeoutMs;
  bool started = false;
  bool broken = false;  // after a fatal error not even a goodbye may be sent
};

namespace tolven::crypto {
namespace {

SslCtxPtr MakeContext(const Pse& pse) {
  SslCtxPtr context(SSL_CTX_new(TLS_client_method()));
  if (!context) throw std::bad_alloc();
  Require(SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1, "protocol version");
  SSL_CTX_set_security_level(context.get(), kSecurityLevel);
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_mode(context.get(), SSL_MODE_AUTO_RETRY);
  const Trust trust(pse);
  SSL_CTX_set1_cert_store(context.get(), trust.store());
  if (pse.key) {
    if (SSL_CTX_use_certificate(context.get(), pse.own.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), pse.key.get()) != 1) {
      throw Failure(DKV_ERR_TLS, "client key");
    }
  }
  return context;
}

bool IsAddress(const char* host) {
  in6_addr space{};
  return inet_pton(AF_INET, host, &space) == 1 || inet_pton(AF_INET6, host, &space) == 1;
}

// The name that the certificate must have; a name, not an address, goes out as server name as well (RFC 6066,
// 3).
void SetHost(SSL* ssl, const char* host) {
  if (IsAddress(host)) {
    Require(X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host) == 1, "address");
    return;
  }
  SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  Require(SSL_set1_host(ssl, host) == 1 && SSL_set_tlsext_host_name(ssl, host) == 1, "host name");
}

void WaitFor(int socket, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) throw Failure(DKV_ERR_TIMEOUT, "deadline");
    pollfd entry{socket, events, 0};
    const int ready = poll(&entry, 1, static_cast<int>(std::min<decltype(left)>(left, INT_MAX)));
    if (ready > 0) return;
    if (ready < 0 && errno != EINTR) throw Failure(DKV_ERR_TLS, "poll");
  }
}

int CertificateRc(const SSL* ssl) {
  switch (SSL_get_verify_result(ssl)) {
    case X509_V_OK:
      return DKV_ERR_TLS;
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return DKV_ERR_TLS_HOST;
    default:
      return DKV_ERR_TLS_CERT;
  }
}

// Repeats a step of TLS until it is done or the time is over. False at the proper end of the peer's data.
template <typename Step>
bool Drive(QelSSLSession& session, Step step) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(session.timeoutMs);
  for (;;) {
    ERR_clear_error();
    const int result = step(session.ssl.get());
    if (result > 0) return true;
    switch (SSL_get_error(session.ssl.get(), result)) {
      case SSL_ERROR_WANT_READ:
        WaitFor(session.socket, POLLIN, deadline);
        break;
      case SSL_ERROR_WANT_WRITE:
        WaitFor(session.socket, POLLOUT, deadline);
        break;
      case SSL_ERROR_ZERO_RETURN:
        return false;
      default:
        session.broken = true;
        throw Failure(CertificateRc(session.ssl.get()), "session");
    }
  }
}

}  // namespace

extern "C" {

DKV_API int QelSSLInit(const char* profile, const char* password, QelSSLContext** context) {
  if (profile == nullptr || context == nullptr) return DKV_ERR_ARGUMENT;
  *context = nullptr;
  return Guarded(__func__, [&] {
    auto made = std::make_unique<QelSSLContext>();
    made->context = MakeContext(LoadPse(profile, password, PseUse::kKeyIfPresent));
    *context = made.release();
    return DKV_OK;
  });
}

DKV_API int QelSSLSessionInit(QelSSLContext* context, int socket, const char* hostName, int timeoutMs,
                              QelSSLSession** session) {
  if (context == nullptr || hostName == nullptr || hostName[0] == '\0' || timeoutMs <= 0 ||
      session == nullptr) {
    return DKV_ERR_ARGUMENT;
  }
  *session = nullptr;
  return Guarded(__func__, [&] {
    auto made = std::make_unique<QelSSLSession>(socket, timeoutMs);
    made->ssl.reset(SSL_new(context->context.get()));
    if (!made->ssl) throw std::bad_alloc();
    SetHost(made->ssl.get(), hostName);
    BIO* bio = MakeSocketBio(socket).release();
    SSL_set_bio(made->ssl.get(), bio, bio);
    *session = made.release();
    return DKV_OK;
  });
}

DKV_API int QelSSLSessionStart(QelSSLSession* session) {
  if (session == nullptr) return DKV_ERR_ARGUMENT;
  return Guarded(__func__, [&] {
    if (!Drive(*session, [](SSL* ssl) { return SSL_connect(ssl); })) throw Failure(DKV_ERR_TLS, "closed");
    session->started = true;
    return DKV_OK;
  });
}

DKV_API int QelSSLSessionRead(QelSSLSession* session, void* buffer, size_t length, size_t* done) {
  if (session == nullptr || buffer == nullptr || length == 0 || done == nullptr) return DKV_ERR_ARGUMENT;
  *done = 0;
  return Guarded(__func__, [&] {
    if (!session->started) throw Failure(DKV_ERR_TLS, "not started");
    Drive(*session, [&](SSL* ssl) { return SSL_read_ex(ssl, buffer, length, done); });
    return DKV_OK;
  });
}

DKV_API int QelSSLSessionWrite(QelSSLSession* session, const void* data, size_t length) {
  if (session == nullptr || (data == nullptr && length != 0)) return DKV_ERR_ARGUMENT;
  return Guarded(__func__, [&] {
    if (!session->started) throw Failure(DKV_ERR_TLS, "not started");
    if (length == 0) return DKV_OK;
    // Without partial writes one success means all of it.
    std::size_t written = 0;
    if (!Drive(*session, [&](SSL* ssl) { return SSL_write_ex(ssl, data, length, &written); })) {
      throw Failure(DKV_ERR_TLS, "closed");
    }
    return DKV_OK;
  });
}

DKV_API int QelSSLSessionClose(QelSSLSession* session) {
  const std::unique_ptr<QelSSLSession> owner(session);
  if (owner && owner->started && !owner->broken) {
    SSL_shutdown(owner->ssl.get());
    ERR_clear_error();
  }
  return DKV_OK;
}

DKV_API int QelSSLDone(QelSSLContext* context) {
  std::unique_ptr<QelSSLContext>{context}.reset();
  return DKV_OK;
}

}  // extern "C"
}  // namespace tolven::crypto

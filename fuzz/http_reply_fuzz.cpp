// Replies of a server or a proxy, over a connection to this process. First byte: which of the two.
#include <netinet/in.h>
#include <sys/socket.h>

#include "fuzz/support.h"
#include "signing/manifest/http_client.h"

namespace {

using tolven::fuzz::Require;

// Keeps a port of this machine to connect to.
class Listener {
 public:
  Listener() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    Require(bind(m_socket, generic, length) == 0 && listen(m_socket, 8) == 0);
    Require(getsockname(m_socket, generic, &length) == 0);
    m_port = std::to_string(ntohs(address.sin_port));
  }
  const std::string& Port() const { return m_port; }
  int Accept() const { return accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC); }

 private:
  int m_socket;
  std::string m_port;
};

}  // namespace

void tolven::fuzz::Run(Input input) {
  static const Listener listener;
  const bool proxy = input.Byte() % 2 == 1;
  Connection connection(HttpLimits{});
  Require(connection.Connect("127.0.0.1", listener.Port()));
  const int server = listener.Accept();
  const fuzz::Bytes reply = input.Rest();
  // More than the sockets hold would never be read.
  const ssize_t sent = send(server, reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  Require(server >= 0 && (sent >= 0 || reply.empty()));
  shutdown(server, SHUT_WR);

  std::vector<std::uint8_t> body;
  std::string error;
  bool good = false;
  if (proxy) {
    SmfUrlComponents url;
    Require(SmfUtilSplitURL("http://host/path", url));
    good = HttpProxyConnect(connection, url, error);
  } else {
    good = SmfUtilHTTPResponseRead(connection, "application/timestamp-reply", body, error);
  }
  Require(good == error.empty() && body.size() <= reply.size());
  // The error is shown to people.
  Require(std::all_of(error.begin(), error.end(), [](char c) { return c >= ' ' && c <= '~'; }));
  Require(std::search(reply.begin(), reply.end(), body.begin(), body.end()) != reply.end() || body.empty());

  // Closed hard, so that the port is not kept.
  const linger hard{1, 0};
  setsockopt(server, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  close(server);
}

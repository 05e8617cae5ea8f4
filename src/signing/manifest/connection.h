#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "signing/manifest/dkv_calls.h"

namespace tolven {

// How long a peer may be silent. A user cannot change it; tests pass shorter ones.
struct HttpLimits {
  int connectMs = 30000;  // until a connection stands, all addresses of the host together
  int readMs = 30000;     // for writing the request, and again for the whole reply
};

// A TCP connection, with TLS over it once StartTls was called. Operations return false and set Error() when
// they fail; after that only the destructor is of use. Writing to a closed connection never raises SIGPIPE.
class Connection {
 public:
  explicit Connection(const HttpLimits& limits) : m_limits(limits) {}
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // host: a name or an address, IPv4 or IPv6.
  [[nodiscard]] bool Connect(const std::string& host, const std::string& port);

  // TLS with the trust of a PSE; the peer's certificate must be for that host. Needs a library with the TLS
  // functions.
  [[nodiscard]] bool StartTls(const DkvTable* library, const std::string& pse, const std::string& host);

  // Starts the time for the next group of reads or writes.
  void StartClock();

  [[nodiscard]] bool Write(std::span<const std::uint8_t> data);
  // Up to buffer.size() bytes; done is 0 at the end of the peer's data.
  [[nodiscard]] bool Read(std::span<std::uint8_t> buffer, std::size_t& done);

  const std::string& Error() const { return m_error; }
  int DkvError() const { return m_dkvError; }

 private:
  bool Fail(const std::string& text);
  bool FailTls(const char* step, int rc);
  bool Wait(short events);
  int MillisecondsLeft() const;

  HttpLimits m_limits;
  std::chrono::steady_clock::time_point m_end{};
  int m_socket = -1;
  const DkvTable* m_library = nullptr;
  DkvPtr<QelSSLContext> m_tls;
  DkvPtr<QelSSLSession> m_session;  // goes before its context and the socket
  std::string m_error;
  int m_dkvError = 0;
};

// Keeps SIGPIPE away while it lives: the TLS functions of a library write to the socket in their own way.
class SigPipeBlock {
 public:
  SigPipeBlock();
  ~SigPipeBlock();
  SigPipeBlock(const SigPipeBlock&) = delete;
  SigPipeBlock& operator=(const SigPipeBlock&) = delete;

 private:
  bool m_blocked = false;
};

}  // namespace tolven

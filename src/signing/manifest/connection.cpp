#include "signing/manifest/connection.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "report/code_names.h"

namespace tolven {
namespace {

using Clock = std::chrono::steady_clock;

struct AddressDeleter {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

bool IsSigPipePending() {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

SigPipeBlock::SigPipeBlock() {
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  if (IsSigPipePending() || pthread_sigmask(SIG_BLOCK, &set, &before) != 0) return;
  m_blocked = sigismember(&before, SIGPIPE) == 0;
}

SigPipeBlock::~SigPipeBlock() {
  if (!m_blocked) return;
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  const timespec now{};
  while (IsSigPipePending() && sigtimedwait(&set, nullptr, &now) < 0 && errno == EINTR) {
  }
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

Connection::~Connection() {
  m_session.reset();
  m_tls.reset();
  if (m_socket >= 0) close(m_socket);
}

bool Connection::Fail(const std::string& text) {
  m_error = text;
  return false;
}

bool Connection::FailTls(const char* step, int rc) {
  m_dkvError = rc;
  return Fail(std::string(step) + " == " + std::to_string(rc) + " (" + DkvCodeName(rc) + ")");
}

void Connection::StartClock() {
  m_end = Clock::now() + std::chrono::milliseconds(m_limits.readMs);
}

int Connection::MillisecondsLeft() const {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_end - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 1 << 30));
}

// Waits until the socket is ready or the time is over.
bool Connection::Wait(short events) {
  pollfd waited{m_socket, events, 0};
  for (;;) {
    const int ready = poll(&waited, 1, MillisecondsLeft());
    if (ready > 0) return true;
    if (ready == 0) return Fail("The server did not answer in time");
    if (errno != EINTR) return Fail(std::string("Error while waiting for the server: ") + strerror(errno));
  }
}

bool Connection::Connect(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (const int result = getaddrinfo(host.c_str(), port.c_str(), &hints, &found); result != 0) {
    return Fail("Host " + host + " is not known: " + gai_strerror(result));
  }
  const std::unique_ptr<addrinfo, AddressDeleter> addresses(found);
  m_end = Clock::now() + std::chrono::milliseconds(m_limits.connectMs);
  int error = ETIMEDOUT;
  for (const addrinfo* address = found; address != nullptr && MillisecondsLeft() > 0;
       address = address->ai_next) {
    m_socket = socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_socket < 0) {
      error = errno;
      continue;
    }
    error = connect(m_socket, address->ai_addr, address->ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
      socklen_t length = sizeof error;
      if (!Wait(POLLOUT)) {
        error = ETIMEDOUT;
      } else if (getsockopt(m_socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        error = errno;
      }
    }
    if (error == 0) return true;
    close(m_socket);
    m_socket = -1;
  }
  return Fail("Connection to " + host + ":" + port + " failed: " + strerror(error));
}

bool Connection::StartTls(const DkvTable* library, const std::string& pse, const std::string& host) {
  m_library = library;
  int rc = DkvCall(library, m_tls, QelLibSSLInit, pse.c_str(), static_cast<const char*>(nullptr));
  if (rc != DKV_OK) return FailTls("Error in SSL initialization: QelSSLInit()", rc);
  rc =
      DkvCall(library, m_session, QelLibSSLSessionInit, m_tls.get(), m_socket, host.c_str(), m_limits.readMs);
  if (rc != DKV_OK) return FailTls("Error in SSL session initialization: QelSSLSessionInit()", rc);
  const DkvLock lock;
  rc = QelLibSSLSessionStart(library, m_session.get());
  return rc == DKV_OK || FailTls("Error in SSL: QelSSLSessionStart()", rc);
}

bool Connection::Write(std::span<const std::uint8_t> data) {
  if (m_session != nullptr) {
    const DkvLock lock;
    const int rc = QelLibSSLSessionWrite(m_library, m_session.get(), data.data(), data.size());
    return rc == DKV_OK || FailTls("Error in SSL: QelSSLSessionWrite()", rc);
  }
  while (!data.empty()) {
    const ssize_t n = send(m_socket, data.data(), data.size(), MSG_NOSIGNAL);
    if (n >= 0) {
      data = data.subspan(static_cast<std::size_t>(n));
    } else if (errno == EAGAIN) {
      if (!Wait(POLLOUT)) return false;
    } else if (errno != EINTR) {
      return Fail(std::string("Error while sending to the server: ") + strerror(errno));
    }
  }
  return true;
}

bool Connection::Read(std::span<std::uint8_t> buffer, std::size_t& done) {
  done = 0;
  if (MillisecondsLeft() == 0) return Fail("The server did not answer in time");
  if (m_session != nullptr) {
    const DkvLock lock;
    const int rc = QelLibSSLSessionRead(m_library, m_session.get(), buffer.data(), buffer.size(), &done);
    return rc == DKV_OK || FailTls("Error in SSL: QelSSLSessionRead()", rc);
  }
  for (;;) {
    const ssize_t n = recv(m_socket, buffer.data(), buffer.size(), 0);
    if (n >= 0) {
      done = static_cast<std::size_t>(n);
      return true;
    }
    if (errno == EAGAIN) {
      if (!Wait(POLLIN)) return false;
    } else if (errno != EINTR) {
      return Fail(std::string("Error while reading from the server: ") + strerror(errno));
    }
  }
}

}  // namespace tolven

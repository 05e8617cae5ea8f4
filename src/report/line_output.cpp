#include "report/line_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

namespace tolven {
namespace {

class KeepErrno {
 public:
  KeepErrno() = default;
  ~KeepErrno() { errno = m_before; }
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  int m_before = errno;
};

iovec PieceOf(std::string_view text) {
  return {const_cast<char*>(text.data()), text.size()};
}

// True iff the write that ended with `error` is to be tried again. A pipe that broke while it was waited for
// tells the write.
bool MayGoOn(int descriptor, int error) {
  if (error == EINTR) return true;
  if (error != EAGAIN) return false;
  pollfd wait = {descriptor, POLLOUT, 0};
  return poll(&wait, 1, -1) >= 0 || errno == EINTR;
}

}  // namespace

int WriteLine(int descriptor, std::string_view text) noexcept {
  const KeepErrno keep;
  std::string_view newline = "\n";
  while (!text.empty() || !newline.empty()) {
    const std::array pieces = {PieceOf(text), PieceOf(newline)};
    const ssize_t result = writev(descriptor, pieces.data(), pieces.size());
    if (result == 0) return EIO;  // no progress and no reason: not to be tried for ever
    if (result < 0) {
      const int error = errno;
      if (!MayGoOn(descriptor, error)) return error;
      continue;
    }
    const auto done = static_cast<std::size_t>(result);
    const std::size_t ofText = std::min(done, text.size());
    text.remove_prefix(ofText);
    newline.remove_prefix(done - ofText);
  }
  return 0;
}

// Closing any descriptor of an open file makes the file system say what it kept back.
int FlushDescriptor(int descriptor) noexcept {
  const KeepErrno keep;
  const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  // Interrupted is closed. Without a free descriptor there is nobody to ask.
  return copy >= 0 && close(copy) != 0 && errno != EINTR ? errno : 0;
}

}  // namespace tolven

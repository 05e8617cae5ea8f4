#include "fileio/unique_fd.h"

#include <unistd.h>

#include <cerrno>

namespace tolven {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  UniqueFd old(std::exchange(m_fd, other.Release()));
  return *this;
}

UniqueFd::~UniqueFd() {
  if (m_fd < 0) return;
  const int error = errno;
  close(m_fd);
  errno = error;
}

}  // namespace tolven

#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tolven {

// An open descriptor with an owner. Letting go of it leaves errno alone: it often happens on the way from a
// failed call to whoever tells of it.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : m_fd(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    const UniqueFd old(std::exchange(m_fd, other.Release()));
    return *this;
  }
  ~UniqueFd() {
    if (m_fd < 0) return;
    const int error = errno;
    close(m_fd);
    errno = error;
  }
  [[nodiscard]] int Get() const { return m_fd; }
  [[nodiscard]] int Release() { return std::exchange(m_fd, -1); }
  explicit operator bool() const { return m_fd >= 0; }

 private:
  int m_fd = -1;
};

}  // namespace tolven

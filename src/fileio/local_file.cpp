#include "fileio/local_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>
#include <vector>

namespace tolven {

LocalFile::LocalFile(const std::string& name, Links links) {
  // O_NONBLOCK: opening a pipe must not wait for its writer.
  const int follow = links == Links::kRefuse ? O_NOFOLLOW : 0;
  UniqueFd fd(open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | follow));
  struct stat status {};
  if (!fd || fstat(fd.Get(), &status) != 0) {
    m_error = errno;
  } else if (!S_ISREG(status.st_mode)) {
    m_error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  } else {
    m_fd = std::move(fd);
  }
}

int LocalFile::Read(std::span<std::uint8_t> buffer, std::size_t& done) const {
  done = 0;
  while (done < buffer.size()) {
    const ssize_t n = read(m_fd.Get(), buffer.data() + done, buffer.size() - done);
    if (n == 0) return 0;
    if (n < 0 && errno != EINTR) return errno;
    if (n > 0) done += static_cast<std::size_t>(n);
  }
  return 0;
}

int LocalFile::ReadAll(std::string& content, std::size_t limit) const {
  try {
    std::vector<std::uint8_t> buffer(65536);
    for (std::size_t done = buffer.size(); done == buffer.size();) {
      if (const int error = Read(buffer, done); error != 0) return error;
      if (content.size() > limit || done > limit - content.size()) return EFBIG;
      content.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(done));
    }
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
  return 0;
}

}  // namespace tolven

#include "fileio/file_place.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

namespace tolven {
namespace {

// As many as the kernel follows in one lookup.
constexpr int kMaxLinks = 40;

}  // namespace

CFilePlace::CFilePlace(const std::string& path) : m_name(path) {
  UniqueFd directory(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (int links = 0; directory && links <= kMaxLinks; ++links) {
    const std::size_t slash = m_name.rfind('/');
    if (slash != std::string::npos) {
      const std::string parent = m_name.substr(0, slash + 1);
      m_name.erase(0, slash + 1);
      directory = UniqueFd(openat(directory.Get(), parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      if (!directory) return;
    }
    if (m_name.empty()) {
      errno = path.empty() ? ENOENT : EISDIR;
      return;
    }
    std::array<char, PATH_MAX> target;
    const ssize_t length = readlinkat(directory.Get(), m_name.c_str(), target.data(), target.size());
    if (length < 0) {  // no link; or nothing, yet
      if (errno == EINVAL || errno == ENOENT) m_directory = std::move(directory);
      return;
    }
    m_name.assign(target.data(), static_cast<std::size_t>(length));
  }
  if (directory) errno = ELOOP;
}

int CFilePlace::Make(int flags, mode_t mode) const {
  return openat(m_directory.Get(), m_name.c_str(), flags | O_CREAT | O_EXCL | O_CLOEXEC, mode);
}

bool CFilePlace::Remove(const FileIdentity& identity) const noexcept {
  struct stat status {};
  return m_directory && fstatat(m_directory.Get(), m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(status.st_mode) && FileIdentity::Of(status) == identity &&
         unlinkat(m_directory.Get(), m_name.c_str(), 0) == 0;
}

}  // namespace tolven

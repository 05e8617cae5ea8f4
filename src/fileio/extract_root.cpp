#include "fileio/extract_root.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>

#include "fileio/utils.h"

namespace tolven {
namespace {

constexpr mode_t kParentMode = 0755;
constexpr mode_t kClosedMode = 0700;
constexpr mode_t kTempMode = 0600;
constexpr std::size_t kRandomLength = 6;
// 62^6 names: a hundred collisions in a row mean that something is wrong, not that luck was bad.
constexpr int kTempAttempts = 100;

// Leaves room for the random characters, and does not cut a UTF-8 sequence apart: some file systems refuse
// that.
std::string ShortenForTemplate(std::string name) {
  constexpr std::size_t kRoom = NAME_MAX - kRandomLength;
  if (name.size() <= kRoom) return name;
  std::size_t cut = kRoom;
  while (cut > kRoom - 4 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
  name.resize(cut);
  return name;
}

// A directory that cannot be read is open for its path only; its attributes are then reached by this name.
std::array<char, 32> DescriptorPath(int fd) {
  std::array<char, 32> path;
  std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", fd);
  return path;
}

}  // namespace

CExtractRoot::CExtractRoot(bool confined, int directory, bool useOpenat2)
    : m_confined(confined),
      m_useOpenat2(useOpenat2),
      m_root(std::make_shared<const UniqueFd>(openat(directory, ".", O_PATH | O_DIRECTORY | O_CLOEXEC))) {}

CExtractRoot::Split CExtractRoot::SplitPath(const std::string& path) {
  const bool absolute = path.starts_with('/');
  std::string_view rest = path;
  const auto dropSlashes = [&rest] {
    while (rest.ends_with('/')) rest.remove_suffix(1);
  };
  dropSlashes();
  const auto slash = rest.rfind('/');
  Split split;
  split.name = rest.substr(slash == std::string_view::npos ? 0 : slash + 1);
  rest.remove_suffix(split.name.size());
  dropSlashes();
  split.parent = rest.empty() && absolute ? "/" : rest;
  return split;
}

bool CExtractRoot::SplitFilePath(const std::string& path, Split& split) const {
  split = SplitPath(path);
  if (!split.name.empty() && !IsDotName(split.name)) return true;
  errno = EISDIR;
  return false;
}

UniqueFd CExtractRoot::EnterOrMake(int fd, const std::string& component, const std::string& prefix,
                                   bool& throughLink) {
  if (m_confined && component == "..") {
    errno = EXDEV;
    return UniqueFd();
  }
  const int flags = O_PATH | O_DIRECTORY | O_CLOEXEC | (m_confined ? O_NOFOLLOW : 0);
  UniqueFd next(openat(fd, component.c_str(), flags));
  if (!next && errno == ENOENT) {
    const bool made = mkdirat(fd, component.c_str(), kParentMode) == 0;
    if (!made && errno != EEXIST) return next;
    next = UniqueFd(openat(fd, component.c_str(), flags));
    struct stat status;
    if (made && next && fstat(next.Get(), &status) == 0) m_madeParents.emplace(status.st_dev, status.st_ino);
  }
  if (next || !m_confined) return next;
  // No directory. If it is a link that may be followed, the whole way to it decides that.
  return OpenDirectory(prefix, throughLink);
}

bool CExtractRoot::MakeParents(const std::string& path, std::string& failed) {
  const std::string parent = SplitPath(path).parent;
  if (OpenParent(parent) >= 0) return true;

  const bool absolute = parent.starts_with('/');
  UniqueFd fd(openat(m_root->Get(), absolute && !m_confined ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  failed = parent;
  if (!fd) return false;
  if (absolute && m_confined) {
    errno = EXDEV;
    return false;
  }
  bool throughLink = !m_confined;
  for (std::size_t begin = 0; begin < parent.size();) {
    const std::size_t end = std::min(parent.find('/', begin), parent.size());
    const std::string component = parent.substr(begin, end - begin);
    begin = end + 1;
    if (component.empty() || component == ".") continue;
    const std::string prefix = parent.substr(0, end);
    UniqueFd next = EnterOrMake(fd.Get(), component, prefix, throughLink);
    if (!next) {
      failed = prefix;
      return false;
    }
    fd = std::move(next);
  }
  failed.clear();
  KeepParent(parent, std::move(fd), throughLink);
  return true;
}

bool CExtractRoot::MakeDirectory(const std::string& path, bool& created, std::string& failed) {
  created = false;
  if (!MakeParents(path, failed)) return false;
  const Split split = SplitPath(path);
  failed = path;
  const int parent = OpenParent(split.parent);
  if (parent < 0) return false;
  if (split.name.empty() || mkdirat(parent, split.name.c_str(), kClosedMode) == 0) {
    created = !split.name.empty();
    failed.clear();
    return true;
  }
  bool ignored = false;
  if (errno != EEXIST || !OpenDirectory(path, ignored)) return false;
  failed.clear();
  created = CloseMadeParent(path);
  return true;
}

// A failing change of the mode is no failure yet: whoever made the directory sets its own mode in the end.
bool CExtractRoot::CloseMadeParent(const std::string& path) {
  if (m_madeParents.empty()) return false;
  const UniqueFd fd = OpenForAttributes(path);
  struct stat status;
  if (!fd || fstat(fd.Get(), &status) != 0) return false;
  if (m_madeParents.erase({status.st_dev, status.st_ino}) == 0) return false;
  // A set-group-id bit that it inherited decides whose group the files in it get.
  static_cast<void>(fchmod(fd.Get(), (status.st_mode & 07000) | kClosedMode));
  return true;
}

// When that fails, the first thing that cannot be made in the directory tells why.
void CExtractRoot::OpenToOwner(const std::string& path) {
  struct stat status;
  if (!Status(path, status) || !S_ISDIR(status.st_mode) || (status.st_mode & S_IRWXU) == S_IRWXU) return;
  static_cast<void>(SetDirectoryMode(path, status.st_mode | S_IRWXU));
}

UniqueFd CExtractRoot::CreateTemp(const std::string& path, std::string& tempPath) {
  Split split;
  if (!SplitFilePath(path, split)) return UniqueFd();
  const int parent = OpenParent(split.parent);
  if (parent < 0) return UniqueFd();
  const std::string stem = ShortenForTemplate(split.name);
  std::string prefix = split.parent;
  if (!prefix.empty() && prefix != "/") prefix += '/';

  std::string suffix;
  for (int attempt = 0; attempt < kTempAttempts; ++attempt) {
    if (!DrawSuffix(suffix)) return UniqueFd();
    const std::string name = stem + suffix;
    std::string full = prefix + name;  // before the file is there: a failure must not leave it
    UniqueFd fd(
        openat(parent, name.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, kTempMode));
    if (fd) tempPath = std::move(full);
    if (fd || errno != EEXIST) return fd;
  }
  return UniqueFd();
}

bool CExtractRoot::DrawSuffix(std::string& suffix) {
  static constexpr std::string_view kLetters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  if (m_randomLeft < kRandomLength) {
    m_randomLeft = 0;
    if (getrandom(m_random.data(), m_random.size(), 0) != static_cast<ssize_t>(m_random.size())) return false;
    m_randomLeft = m_random.size();
  }
  suffix.clear();
  while (suffix.size() < kRandomLength) suffix += kLetters[m_random[--m_randomLeft] % kLetters.size()];
  return true;
}

std::shared_ptr<const UniqueFd> CExtractRoot::ShareParent(const std::string& path) {
  const std::string parent = SplitPath(path).parent;
  if (OpenParent(parent) < 0) return nullptr;
  return parent.empty() ? m_root : m_parent;
}

bool CExtractRoot::Rename(const std::string& tempPath, const std::string& path) {
  Split from;
  Split to;
  if (!SplitFilePath(tempPath, from) || !SplitFilePath(path, to)) return false;
  if (from.parent != to.parent) {
    errno = EXDEV;
    return false;
  }
  const int parent = OpenParent(to.parent);
  const bool done = parent >= 0 && renameat(parent, from.name.c_str(), parent, to.name.c_str()) == 0;
  ForgetParentThroughLink();
  return done;
}

bool CExtractRoot::Remove(const std::string& path) {
  Split split;
  if (!SplitFilePath(path, split)) return false;
  const int parent = OpenParent(split.parent);
  const bool done = parent >= 0 && unlinkat(parent, split.name.c_str(), 0) == 0;
  ForgetParentThroughLink();
  return done;
}

bool CExtractRoot::Status(const std::string& path, struct stat& status) {
  const Split split = SplitPath(path);
  const int parent = OpenParent(split.parent);
  const char* name = split.name.empty() ? "." : split.name.c_str();
  return parent >= 0 && fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool CExtractRoot::IsLinkTo(const std::string& path, const std::string& target) {
  Split split;
  if (!SplitFilePath(path, split)) return false;
  const int parent = OpenParent(split.parent);
  std::string found(target.size() + 1, '\0');  // room to see a longer one
  const ssize_t length = parent < 0 ? -1 : readlinkat(parent, split.name.c_str(), found.data(), found.size());
  return length >= 0 && std::string_view(found.data(), static_cast<std::size_t>(length)) == target;
}

bool CExtractRoot::MakeLink(const std::string& target, const std::string& path) {
  Split split;
  if (!SplitFilePath(path, split)) return false;
  const int parent = OpenParent(split.parent);
  if (parent < 0 || symlinkat(target.c_str(), parent, split.name.c_str()) != 0) return false;
  // A link that could not be remembered could be followed later: better none.
  struct stat status;
  const bool known = fstatat(parent, split.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (known) {
    RunStatus::Current().links.emplace(status.st_dev, status.st_ino);
  } else {
    const int error = errno;
    unlinkat(parent, split.name.c_str(), 0);
    errno = error;
  }
  ForgetParentThroughLink();
  return known;
}

UniqueFd CExtractRoot::OpenForAttributes(const std::string& path) {
  const Split split = SplitPath(path);
  const int parent = OpenParent(split.parent);
  if (parent < 0) return UniqueFd();
  const char* name = split.name.empty() ? "." : split.name.c_str();
  constexpr int kFlags = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd fd(openat(parent, name, O_RDONLY | kFlags));
  if (!fd && errno == EACCES) fd = UniqueFd(openat(parent, name, O_PATH | kFlags));
  return fd;
}

bool CExtractRoot::SetDirectoryDate(const std::string& path, std::int64_t mtime) {
  const UniqueFd fd = OpenForAttributes(path);
  if (!fd) return false;
  const timespec times[2] = {{mtime, 0}, {mtime, 0}};
  if (futimens(fd.Get(), times) == 0) return true;
  return errno == EBADF && utimensat(AT_FDCWD, DescriptorPath(fd.Get()).data(), times, 0) == 0;
}

bool CExtractRoot::SetDirectoryMode(const std::string& path, std::uint32_t mode) {
  const UniqueFd fd = OpenForAttributes(path);
  if (!fd) return false;
  if (fchmod(fd.Get(), mode & 0xFFF) == 0) return true;
  return errno == EBADF && chmod(DescriptorPath(fd.Get()).data(), mode & 0xFFF) == 0;
}

}  // namespace tolven

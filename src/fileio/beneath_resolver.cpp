// How CExtractRoot reaches a directory without leaving the extraction directory.
//
// The kernel's own confined lookup answers the usual case, a way without any link, in one call. Everything
// else is walked here component by component: a link is read, judged and put in place of its name, never
// followed by the kernel. So both ways reach the same directories, and a kernel without the call loses only
// speed.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "fileio/extract_root.h"

namespace tolven {
namespace {

// As many as the kernel follows in one lookup.
constexpr int kMaxLinks = 40;

constexpr int kPathDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;

// The components of `path` on top of `rest`, which holds what is still to do, next one last.
void PushComponents(std::string_view path, std::vector<std::string>& rest) {
  while (!path.empty()) {
    const auto slash = path.rfind('/');
    rest.emplace_back(path.substr(slash == std::string_view::npos ? 0 : slash + 1));
    path = path.substr(0, slash == std::string_view::npos ? 0 : slash);
  }
}

// Puts the target of the link open at `fd` on top of `rest`. An absolute target leaves the root.
bool PushLinkTarget(int fd, std::vector<std::string>& rest) {
  std::array<char, PATH_MAX> target;
  const ssize_t length = readlinkat(fd, "", target.data(), target.size());
  if (length < 0) return false;
  const std::string_view text(target.data(), static_cast<std::size_t>(length));
  if (text.empty() || text.size() == target.size()) {
    errno = text.empty() ? ENOENT : ENAMETOOLONG;
    return false;
  }
  if (text.front() == '/') {
    errno = EXDEV;
    return false;
  }
  PushComponents(text, rest);
  return true;
}

// Opens `components`, all of them real directories a moment ago, below `root`.
UniqueFd OpenChain(int root, const std::vector<std::string>& components) {
  UniqueFd fd(openat(root, ".", kPathDirectory));
  for (const std::string& component : components) {
    if (!fd) break;
    fd = UniqueFd(openat(fd.Get(), component.c_str(), kPathDirectory | O_NOFOLLOW));
  }
  return fd;
}

}  // namespace

int CExtractRoot::OpenParent(const std::string& path) {
  if (path.empty()) return m_root->Get();
  if (m_parent != nullptr && m_parentPath == path) return m_parent->Get();
  bool throughLink = false;
  UniqueFd fd = OpenDirectory(path, throughLink);
  if (!fd) return -1;
  KeepParent(path, std::move(fd), throughLink);
  return m_parent->Get();
}

void CExtractRoot::KeepParent(const std::string& path, UniqueFd fd, bool throughLink) {
  m_parent = fd ? std::make_shared<const UniqueFd>(std::move(fd)) : nullptr;
  m_parentPath = path;
  m_parentThroughLink = throughLink;
}

// A chain of real directories stays what it is: this class never removes or replaces a directory.
void CExtractRoot::ForgetParentThroughLink() {
  if (m_parentThroughLink) KeepParent(std::string(), UniqueFd(), false);
}

UniqueFd CExtractRoot::OpenDirectory(const std::string& path, bool& throughLink) {
  if (!m_confined) {
    throughLink = true;  // nobody looked
    return UniqueFd(openat(m_root->Get(), path.empty() ? "." : path.c_str(), kPathDirectory));
  }
  UniqueFd fd = OpenBeneath(path);
  // On any failure the walk has the last word: it may follow an old link, and it names the error.
  return fd ? std::move(fd) : WalkBeneath(path, throughLink);
}

UniqueFd CExtractRoot::OpenBeneath(const std::string& path) {
  if (!m_useOpenat2) return UniqueFd();
  open_how how = {};
  how.flags = kPathDirectory;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  const long fd = syscall(SYS_openat2, m_root->Get(), path.empty() ? "." : path.c_str(), &how, sizeof how);
  // No such call here, or a sandbox forbids it: do not ask again.
  if (fd < 0 && (errno == ENOSYS || errno == EPERM)) m_useOpenat2 = false;
  return UniqueFd(static_cast<int>(fd));
}

UniqueFd CExtractRoot::WalkBeneath(std::string_view path, bool& throughLink) const {
  std::vector<std::string> rest;
  std::vector<std::string> done;  // real directories from the root down to `fd`
  if (path.starts_with('/')) {
    errno = EXDEV;
    return UniqueFd();
  }
  PushComponents(path, rest);
  UniqueFd fd = OpenChain(m_root->Get(), done);
  bool stale = false;  // `done` was shortened: `fd` is not its end any more
  int links = 0;
  while (fd && !rest.empty()) {
    std::string component = std::move(rest.back());
    rest.pop_back();
    if (component.empty() || component == ".") continue;
    if (component == "..") {
      if (done.empty()) {
        errno = EXDEV;
        return UniqueFd();
      }
      done.pop_back();
      stale = true;
      continue;
    }
    if (std::exchange(stale, false)) fd = OpenChain(m_root->Get(), done);
    if (!fd) break;
    UniqueFd next(openat(fd.Get(), component.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!next || fstat(next.Get(), &status) != 0) return UniqueFd();
    if (S_ISDIR(status.st_mode)) {
      fd = std::move(next);
      done.push_back(std::move(component));
      continue;
    }
    if (!S_ISLNK(status.st_mode)) {
      errno = ENOTDIR;
      return UniqueFd();
    }
    if (++links > kMaxLinks || RunStatus::Current().links.contains({status.st_dev, status.st_ino})) {
      errno = ELOOP;
      return UniqueFd();
    }
    throughLink = true;
    if (!PushLinkTarget(next.Get(), rest)) return UniqueFd();
  }
  return stale && fd ? OpenChain(m_root->Get(), done) : std::move(fd);
}

}  // namespace tolven

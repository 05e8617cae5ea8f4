// Looking names up in directories, with "*" and "?" in the last component.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "fileio/unique_fd.h"
#include "fileio/utils.h"
#include "report/except.h"

namespace tolven {
namespace {

// LastError() at the end of a directory.
constexpr int kEndOfDirectory = 18;
// A directory that cannot be read on is given up after this many failures in a row.
constexpr int kMaxReadFailures = 16;

bool HasWildcards(std::string_view pattern) {
  return pattern.find_first_of("*?") != std::string_view::npos;
}

// The directory to scan and the pattern to match in it. "/" and ".." stand for the directory itself: what is
// found is its own "." or "..", which callers never archive as an entry but descend into.
std::pair<std::string, std::string> SplitPattern(const std::string& pattern) {
  if (pattern == "..") return {pattern, pattern};
  if (pattern == "/") return {pattern, std::string(1, '.')};
  const auto slash = pattern.rfind('/');
  if (slash == std::string::npos) return {std::string(1, '.'), pattern};
  return {pattern.substr(0, slash == 0 ? 1 : slash), pattern.substr(slash + 1)};
}

void SetName(const char* name, strFileData* data) {
  const std::size_t length = std::min(std::strlen(name), data->name.size() - 1);
  std::memcpy(data->name.data(), name, length);
  data->name[length] = '\0';
}

void SetAttributes(strFileData* data) {
  const std::string path = data->directory + data->name.data();
  if (!CUtils::SetFlAttr(path, *data)) throw CStatExcept(path, LastSystemError());
}

bool FindMatch(const FindHandle& handle, strFileData* data) {
  if (!CUtils::FileFindName(handle, data)) return false;
  SetAttributes(data);
  return true;
}

enum class Lookup { kFound, kMissing, kUnknown };

// A name without wildcards needs no reading of the whole directory. Unknown: the directory may be read but
// not searched; only a scan tells whether the name is there.
Lookup LookUp(DIR* directory, const std::string& name) {
  struct stat status;
  if (name.empty()) return Lookup::kMissing;
  if (fstatat(dirfd(directory), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return Lookup::kFound;
  return errno == ENOENT || errno == ENAMETOOLONG ? Lookup::kMissing : Lookup::kUnknown;
}

bool FindFirstMatch(const FindHandle& handle, strFileData* data) {
  if (!HasWildcards(data->pattern)) {
    const Lookup result = LookUp(handle.get(), data->pattern);
    errno = 0;
    if (result == Lookup::kMissing) return false;
    if (result == Lookup::kFound) {
      SetName(data->pattern.c_str(), data);
      SetAttributes(data);
      return true;
    }
  }
  return FindMatch(handle, data);
}

std::string UpperCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// An entry that cannot be read does not hide the ones behind it.
bool FindNextPastFailures(const FindHandle& handle, strFileData* data) {
  for (int failures = 0; failures < kMaxReadFailures; ++failures) {
    if (CUtils::FileFindNext(handle, data)) return true;
    if (CUtils::LastError() == kEndOfDirectory) return false;
  }
  return false;
}

}  // namespace

bool IsDotName(std::string_view name) {
  return name == "." || name == "..";
}

FindHandle CUtils::FileFindOpen(const std::string& pattern, strFileData* data, bool followLink) {
  auto [directory, namePattern] = SplitPattern(pattern);
  data->pattern = std::move(namePattern);
  const int flags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW);
  UniqueFd fd(open(directory.c_str(), flags));
  FindHandle handle(fd ? fdopendir(fd.Get()) : nullptr);
  if (handle == nullptr) return nullptr;
  (void)fd.Release();
  if (directory.back() != '/') directory += '/';
  data->directory = std::move(directory);
  return handle;
}

bool CUtils::FileFindName(const FindHandle& handle, strFileData* data) {
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(handle.get());
    if (entry == nullptr) return false;
    if (!StringMatch(entry->d_name, data->pattern.c_str())) continue;
    SetName(entry->d_name, data);
    return true;
  }
}

FindHandle CUtils::FileFindFirst(const std::string& pattern, strFileData* data) {
  FindHandle handle = FileFindOpen(pattern, data);
  if (handle == nullptr) return nullptr;
  if (FindFirstMatch(handle, data)) return handle;
  const int error = errno;
  handle.reset();
  errno = error;
  return nullptr;
}

bool CUtils::FileFindNext(const FindHandle& handle, strFileData* data) {
  errno = 0;
  // A literal name is there once at most, and FileFindFirst has delivered it.
  if (!HasWildcards(data->pattern)) return false;
  return FindMatch(handle, data);
}

bool CUtils::FileFindClose(FindHandle& handle) {
  return handle != nullptr && closedir(handle.release()) == 0;
}

int AddNamesToContainer(std::vector<std::string>& container, const std::string& pattern, bool ignoreCase) {
  const auto slash = pattern.rfind('/');
  const std::string prefix = slash == std::string::npos ? std::string() : pattern.substr(0, slash + 1);
  const std::string namePattern = UpperCase(pattern.substr(prefix.size()));

  strFileData data;
  FindHandle handle = CUtils::FileFindFirst(ignoreCase ? prefix + "*" : pattern, &data);
  if (handle == nullptr) return errno;
  do {
    const char* name = data.name.data();
    const bool wanted = !ignoreCase || CUtils::StringMatch(UpperCase(name).c_str(), namePattern.c_str());
    if (wanted && !IsDotName(name)) container.push_back(prefix + name);
  } while (FindNextPastFailures(handle, &data));
  if (CUtils::LastError() != kEndOfDirectory) return CUtils::LastError();
  CUtils::FileFindClose(handle);
  return 0;
}

}  // namespace tolven

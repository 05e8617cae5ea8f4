#include "oldarchive/old_paths.h"

#include <algorithm>
#include <string_view>

#include "fileio/utils.h"

namespace tolven {
namespace {

// The name itself or any directory above it: whoever selects a directory gets what is below.
bool MatchesNameOrParent(const std::string& name, const std::string& pattern) {
  if (CUtils::StringMatch(name.c_str(), pattern.c_str())) return true;
  for (std::size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
    if (slash > 0 && CUtils::StringMatch(name.substr(0, slash).c_str(), pattern.c_str())) return true;
  }
  return false;
}

char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

void SplitPath(const std::string& path, std::string& directory, std::string& file) {
  const std::size_t slash = path.rfind('/');
  const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  directory = slash == 0 ? "/" : path.substr(0, nameStart == 0 ? 0 : slash);
  file = path.substr(nameStart);
}

std::string NormalizePath(const std::string& path) {
  std::string result = path.starts_with('/') ? "/" : "";
  const std::string_view whole = path;
  for (std::size_t start = 0; start < whole.size();) {
    const std::size_t end = std::min(whole.find('/', start), whole.size());
    const std::string_view component = whole.substr(start, end - start);
    if (!component.empty() && component != ".") {
      if (!result.empty() && result.back() != '/') result += '/';
      result += component;
    }
    start = end + 1;
  }
  return result.empty() ? "." : result;
}

std::string TransformPath(const PathSettings& settings, const std::string& name) {
  std::string result = name;
  if (settings.flat) {
    while (result.size() > 1 && result.back() == '/') result.pop_back();
    std::string directory;
    SplitPath(std::string(result), directory, result);
  }
  if (settings.lowerCase) std::transform(result.begin(), result.end(), result.begin(), LowerAscii);
  return result;
}

bool CreateFilename(const PathSettings& settings, const FileInfo& info, std::string& path) {
  path = info.target;
  if (settings.validate) CUtils::ValidateFilePath(path);
  // A directory "." or "/" stands for the place that is extracted to; a file without a name is nothing.
  if (path.empty() && info.IsDirectory() && settings.validate) path.assign(1, '.');
  return !path.empty() && path.size() < kNameBufferSize && (info.IsDirectory() || path.back() != '/');
}

bool DoesFilenameMatch(const std::vector<std::string>& names, const FileInfo& info) {
  if (names.empty()) return true;
  const std::string stored = NormalizePath(info.name);
  return std::any_of(names.begin(), names.end(), [&](const std::string& pattern) {
    return MatchesNameOrParent(stored, pattern) || MatchesNameOrParent(info.name, pattern) ||
           MatchesNameOrParent(info.target, pattern);
  });
}

}  // namespace tolven

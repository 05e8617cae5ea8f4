#include "oldarchive/old_paths.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "fileio/utils.h"

namespace tolven {
namespace {

// Byte order with "/" before everything else: what lies below a directory follows it directly.
bool ComesBefore(const std::string& a, const std::string& b) {
  const auto rank = [](char c) { return c == '/' ? 0 : 1 + static_cast<unsigned char>(c); };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](char x, char y) { return rank(x) < rank(y); });
}

// True iff `name` is `above` or lies below it. The empty name is no directory.
bool IsOrLiesBelow(const std::string& name, const std::string& above) {
  if (!name.starts_with(above)) return false;
  return name.size() == above.size() || (!above.empty() && name[above.size()] == '/');
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

// Text only, the disk is not asked. So ".." stays: behind a link it means something else than the path
// without it.
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
  // The length is that of the program's buffers for a name; longer ones no system call takes anyway.
  return !path.empty() && path.size() < kNameBufferSize && (info.IsDirectory() || path.back() != '/');
}

NameSelection::NameSelection(const std::vector<std::string>& names) : m_all(names.empty()) {
  for (const std::string& name : names) {
    if (name.find_first_of("*?") == std::string::npos) {
      m_exact.push_back(name);
    } else {
      m_patterns.push_back(name);
      m_patterns.push_back(name + "/*");  // "*" goes over "/" too: a directory on the way, at any depth
    }
  }
  std::sort(m_exact.begin(), m_exact.end(), ComesBefore);
  // Equal neighbours count as one below the other.
  const auto below = [](const std::string& above, const std::string& name) {
    return IsOrLiesBelow(name, above);
  };
  m_exact.erase(std::unique(m_exact.begin(), m_exact.end(), below), m_exact.end());
}

bool NameSelection::Selects(const std::string& name) const {
  if (m_all) return true;
  // Between a directory and what lies below it there is nothing but what lies below it too, and of that none
  // was kept: if any of the names selects this one, then the last that does not come behind it.
  const auto behind = std::upper_bound(m_exact.begin(), m_exact.end(), name, ComesBefore);
  if (behind != m_exact.begin() && IsOrLiesBelow(name, *std::prev(behind))) return true;
  return std::any_of(m_patterns.begin(), m_patterns.end(), [&](const std::string& pattern) {
    return CUtils::StringMatch(name.c_str(), pattern.c_str());
  });
}

// A user knows an entry by the listing, which shows the name on disk, or by the header, where "./" may stand
// in front of it: each of them selects.
bool DoesFilenameMatch(const NameSelection& names, const FileInfo& info) {
  return names.Selects(NormalizePath(info.name)) || names.Selects(info.name) || names.Selects(info.target);
}

}  // namespace tolven

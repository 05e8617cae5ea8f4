// Rules on names that ask no file system: pattern matching and the paths of archive members.
#include <string_view>
#include <vector>

#include "fileio/utils.h"

namespace tolven {

// Only the last "*" seen can still grow: giving an earlier one more characters reaches nothing that the later
// one does not reach too. So a mismatch returns to one remembered place, and the worst case is the product of
// the two lengths.
bool CUtils::StringMatch(const char* name, const char* pattern) {
  const char* star = nullptr;      // behind the last "*"
  const char* starName = nullptr;  // where that "*" ends in the name
  while (*name != '\0') {
    if (*pattern == '*') {
      star = ++pattern;
      starName = name;
    } else if (*pattern == '?' || *pattern == *name) {
      ++pattern;
      ++name;
    } else if (star != nullptr) {
      pattern = star;
      name = ++starName;
    } else {
      return false;
    }
  }
  while (*pattern == '*') ++pattern;
  return *pattern == '\0';
}

// The result only ever names something below the directory it is joined to. Taking ".." as "drop the
// component before it, if there is one" settles every order of "." and ".." in one pass.
void CUtils::ValidateFilePath(std::string& path) {
  std::string_view rest = path;
  while (rest.ends_with('/')) rest.remove_suffix(1);
  const auto colon = rest.find(':');
  if (colon != std::string_view::npos) rest.remove_prefix(colon + 1);

  std::vector<std::string_view> components;
  while (!rest.empty()) {
    const auto slash = rest.find('/');
    const std::string_view component = rest.substr(0, slash);
    rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
    if (component.empty() || component == ".") continue;
    if (component != "..") {
      components.push_back(component);
    } else if (!components.empty()) {
      components.pop_back();
    }
  }

  std::string result;
  result.reserve(path.size());
  for (const std::string_view component : components) {
    if (!result.empty()) result += '/';
    result += component;
  }
  path = std::move(result);
}

}  // namespace tolven

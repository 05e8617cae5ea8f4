#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tolven::test {

// The parts of a text between bars: short rows of a table, which would take a line each.
inline std::vector<std::string> Split(std::string_view text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == '|') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

}  // namespace tolven::test

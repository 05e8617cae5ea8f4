#pragma once

#include <string>

namespace tolven {

// "/" to "\" for the other platform; nothing here calls it.
class CPathFormatter {
 public:
  static void ReplaceDelimiter(std::string& path);
  static std::string ToAbsWinFormatLongName(std::string path);
};

}  // namespace tolven

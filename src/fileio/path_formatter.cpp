#include "fileio/path_formatter.h"

#include <algorithm>

namespace tolven {

void CPathFormatter::ReplaceDelimiter(std::string& path) {
  std::replace(path.begin(), path.end(), '/', '\\');
}

std::string CPathFormatter::ToAbsWinFormatLongName(std::string path) {
  ReplaceDelimiter(path);
  return path;
}

}  // namespace tolven

#pragma once

#include <string>

#include "fileio/extract_root.h"

namespace tolven {

// Remembers the working directory, by descriptor, and returns to it on every path.
class CWorkingDirectory {
 public:
  CWorkingDirectory();
  ~CWorkingDirectory();
  CWorkingDirectory(const CWorkingDirectory&) = delete;
  CWorkingDirectory& operator=(const CWorkingDirectory&) = delete;

  // False, with errno set, when the directory cannot be entered.
  [[nodiscard]] static bool Enter(const std::string& directory);

 private:
  UniqueFd m_start;
};

}  // namespace tolven

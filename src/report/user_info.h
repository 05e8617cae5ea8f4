#pragma once

#include <string>

namespace tolven {

// Anything the program can print: exceptions, the usage, statistics, the space report, listing lines.
class CUserInfo {
 public:
  // The text as a new string.
  virtual std::string GetInfoText() const = 0;
  virtual ~CUserInfo() = default;
};

}  // namespace tolven

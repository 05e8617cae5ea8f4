#pragma once

#include "cmdline/cmd_line.h"

namespace tolven {

// The rules on combinations of options: one table, checked in order.
class CUsageChecker {
 public:
  explicit CUsageChecker(CCmdLine& cmdLine) : m_cmdLine(cmdLine) {}
  // Throws CExcept for the first rule broken. A create with -T alone gets the old names as its names.
  void Check() const;

 private:
  CCmdLine& m_cmdLine;
};

}  // namespace tolven

#pragma once

#include <string>

namespace tolven {

// The system text of the current errno; empty when errno is 0.
std::string SystemErrorText();

// errno, or 18 (end of directory) when errno is 0: a failure must never report 0.
int SystemErrorNumber();

}  // namespace tolven

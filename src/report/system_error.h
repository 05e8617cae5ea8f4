#pragma once

#include <string>

namespace tolven {

// The system's number for what failed, for the exception or message that speaks of it; 0: no call failed, and
// there is nothing of the system's to tell. A type of its own, so that it is never taken for an exit code.
struct SystemError {
  int number = 0;
  explicit operator bool() const { return number != 0; }
};
inline constexpr SystemError kNoSystemError{};

// That of the call that has just failed. Taken at once: whatever comes in between may fail as well.
SystemError LastSystemError();

// The system text; empty for none.
std::string SystemErrorText(SystemError error);

// The number, or 18 (end of directory) for none: a failure must never report 0.
int SystemErrorNumber(SystemError error);

}  // namespace tolven

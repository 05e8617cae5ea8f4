#include "report/system_error.h"

#include <cerrno>
#include <cstring>

namespace tolven {
namespace {

// The end-of-directory value: what a failure reports when the system set no number of its own.
constexpr int kNoMoreFiles = 18;

}  // namespace

SystemError LastSystemError() {
  return {errno};
}

std::string SystemErrorText(SystemError error) {
  return error ? std::strerror(error.number) : std::string();
}

int SystemErrorNumber(SystemError error) {
  return error ? error.number : kNoMoreFiles;
}

}  // namespace tolven

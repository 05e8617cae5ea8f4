#include "report/system_error.h"

#include <cerrno>
#include <cstring>

namespace tolven {
namespace {

// The end-of-directory value: what a failure reports when the system set no number of its own.
constexpr int kNoMoreFiles = 18;

}  // namespace

std::string SystemErrorText() {
  const int error = errno;
  if (error == 0) return {};
  std::string text = std::strerror(error);
  errno = error;  // strerror may load message catalogues
  return text;
}

int SystemErrorNumber() {
  return errno == 0 ? kNoMoreFiles : errno;
}

}  // namespace tolven

#include "cslib/trace.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

namespace tolven {

constinit CsTrace g_csTrace;

namespace {
constexpr std::int32_t kBytesPerLine = 16;
}  // namespace

// The function first, so that there is one by the time a level asks for lines. A call that runs meanwhile may
// still print through the old one.
void CsSetTrace(int level, CsTracePrint print) {
  g_csTrace.print.store(print, std::memory_order_release);
  g_csTrace.level.store(level, std::memory_order_relaxed);
}

void CsTPrintf(const char* format, ...) {
  const CsTracePrint print = g_csTrace.print.load(std::memory_order_acquire);
  if (print == nullptr) return;
  // On the stack, so that tracing neither allocates nor needs a lock; a file name that makes a line longer is
  // cut.
  std::array<char, 1024> text;
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  if (length >= 0) print(text.data());
}

// A line at a time through the print function, so that the dump of a large call needs no large buffer.
void TshowBuf(const char* title, const std::uint8_t* bytes, std::int32_t count) {
  CsTPrintf("    %s: %d bytes\n", title, count);
  std::array<char, 3 * kBytesPerLine + 1> line;
  for (std::int32_t at = 0; at < count; at += kBytesPerLine) {
    const std::int32_t inLine = std::min(kBytesPerLine, count - at);
    for (std::int32_t i = 0; i < inLine; ++i) {
      const auto column = static_cast<std::size_t>(3 * i);
      std::snprintf(line.data() + column, line.size() - column, " %02x", bytes[at + i]);
    }
    CsTPrintf("    %08x:%s\n", static_cast<unsigned>(at), line.data());
  }
}

}  // namespace tolven

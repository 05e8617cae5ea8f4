#pragma once

// The engine's diagnostic output: lines that tell what each call was given and gave. It costs one relaxed
// load a call while it is off, and nothing inside the coders ever asks for it.

#include <atomic>
#include <cstdint>

#include "cslib/cslib.h"

namespace tolven {

// Bits of the trace level. kTraceCalls is not a bit: the lines of the functions whose names end in Ex come
// at this very level and at no other, so that they are not mixed with the lines of the calls below them.
inline constexpr int kTraceLines = 1;
inline constexpr int kTraceDumps = 4;
inline constexpr int kTraceCalls = 16;

// What CsSetTrace was given last. The level is looked at by every call and the function only when there is
// something to print. They are set one after the other: calls that run meanwhile may use the old function or
// the new one.
struct CsTrace {
  std::atomic<int> level{0};
  std::atomic<CsTracePrint> print{nullptr};
};
extern constinit CsTrace g_csTrace;

// 0: off.
inline int CsTraceLevel() {
  return g_csTrace.level.load(std::memory_order_relaxed);
}

// Formats one text of at most 1023 bytes and hands it to the print function; nothing while none is set.
// Error lines go this way at every level: whoever set a function wants to hear of them.
[[gnu::format(printf, 1, 2)]] void CsTPrintf(const char* format, ...);

// `count` bytes as hex, 16 a line, each line led by its offset; `title` stands above them.
void TshowBuf(const char* title, const std::uint8_t* bytes, std::int32_t count);

}  // namespace tolven

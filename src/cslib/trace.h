#pragma once

// The engine's diagnostic output. Costs one relaxed load a call while it is off.

#include <atomic>
#include <cstdint>

namespace tolven {

// Bits of the trace level; kTraceCalls is compared as a whole level, not as a bit.
inline constexpr int kTraceLines = 1;
inline constexpr int kTraceDumps = 4;
inline constexpr int kTraceCalls = 16;

namespace trace_detail {
extern constinit std::atomic<int> level;
}

// What CsSetTrace was given last; 0: off.
inline int CsTraceLevel() {
  return trace_detail::level.load(std::memory_order_relaxed);
}

// Formats one text of at most 1023 bytes and hands it to the print function; nothing while none is set.
[[gnu::format(printf, 1, 2)]] void CsTPrintf(const char* format, ...);

// `count` bytes as hex, 16 a line, each line led by its offset; `title` stands above them.
void TshowBuf(const char* title, const std::uint8_t* bytes, std::int32_t count);

}  // namespace tolven

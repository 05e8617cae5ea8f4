#pragma once

namespace tolven::crypto {

inline constexpr int kTraceError = 1;
inline constexpr int kTraceDetail = 2;

// One line to the program's trace callback, when there is one and its level is on; the LF is added.
void Trace(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace tolven::crypto

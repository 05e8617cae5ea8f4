#pragma once

#include <string_view>

namespace tolven {

// Writes `text` and a newline, in one call of the system where it takes them in one. Goes on after an
// interruption, after a short count, and when a non-blocking reader is slow. 0, or the error number; needs no
// memory and leaves errno alone.
[[nodiscard]] int WriteLine(int descriptor, std::string_view text) noexcept;

// What a file system reports only when a file is closed, without closing it. 0, or the error number.
[[nodiscard]] int FlushDescriptor(int descriptor) noexcept;

}  // namespace tolven

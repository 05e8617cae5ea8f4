#pragma once

#include <cstddef>
#include <cstdint>

namespace tolven {

// CRC-32 of the digest family: reflected polynomial 0xEDB88320, register starts as and is inverted with
// 0xFFFFFFFF, written most significant byte first.
struct Crc32State {
  static constexpr std::size_t kDigestLength = 4;

  std::uint32_t value = 0xffffffff;
};

}  // namespace tolven

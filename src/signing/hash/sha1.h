#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tolven {

// SHA-1, FIPS 180-4 section 6.1. Kept for manifests that name it; no protection against a deliberate
// collision.
struct Sha1State {
  static constexpr std::size_t kBlockLength = 64;
  static constexpr std::size_t kDigestLength = 20;

  std::array<std::uint32_t, 5> h{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
  std::uint64_t length = 0;                       // bytes fed so far
  std::array<std::uint8_t, kBlockLength> tail{};  // the first length % 64 bytes wait for a full block

  void Compress(const std::uint8_t* blocks, std::size_t count);
  void Finish(std::span<std::uint8_t> digest);
};

}  // namespace tolven

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tolven {

// MD5, RFC 1321. Kept for manifests that name it; no protection against a deliberate collision.
struct Md5State {
  static constexpr std::size_t kBlockLength = 64;
  static constexpr std::size_t kDigestLength = 16;

  std::array<std::uint32_t, 4> h{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  std::uint64_t length = 0;                       // bytes fed so far
  std::array<std::uint8_t, kBlockLength> tail{};  // the first length % 64 bytes wait for a full block

  void Compress(const std::uint8_t* blocks, std::size_t count);
  void Finish(std::span<std::uint8_t> digest);
};

}  // namespace tolven

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tolven {

// SHA-512 and SHA-384, FIPS 180-4 sections 6.4 and 6.5: one compression, two sets of initial values, and for
// SHA-384 a digest cut to 48 bytes.
struct Sha512State {
  static constexpr std::size_t kBlockLength = 128;
  static constexpr std::size_t kDigestLength = 64;
  static constexpr std::size_t kSha384DigestLength = 48;

  static Sha512State Sha384();

  std::array<std::uint64_t, 8> h{0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b,
                                 0xa54ff53a5f1d36f1, 0x510e527fade682d1, 0x9b05688c2b3e6c1f,
                                 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};
  std::uint64_t length = 0;                       // bytes fed so far
  std::array<std::uint8_t, kBlockLength> tail{};  // the first length % 128 bytes wait for a full block

  void Compress(const std::uint8_t* blocks, std::size_t count);

  // Writes the first digest.size() bytes, 48 or 64.
  void Finish(std::span<std::uint8_t> digest);
};

}  // namespace tolven

#include "signing/hash/sha1.h"

#include <bit>

#include "signing/hash/block_feed.h"

namespace tolven {
namespace {

// FIPS 180-4 sections 4.1.1 and 4.2.1: function and constant of the 20 rounds that round t belongs to.
constexpr std::uint32_t RoundFunction(std::size_t t, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  if (t < 20) return ((b & c) ^ (~b & d)) + 0x5a827999;
  if (t < 40) return (b ^ c ^ d) + 0x6ed9eba1;
  if (t < 60) return ((b & c) ^ (b & d) ^ (c & d)) + 0x8f1bbcdc;
  return (b ^ c ^ d) + 0xca62c1d6;
}

}  // namespace

void Sha1State::Compress(const std::uint8_t* blocks, std::size_t count) {
  for (; count != 0; --count, blocks += kBlockLength) {
    // The message schedule only looks 16 words back: a ring of 16 is enough.
    std::array<std::uint32_t, 16> w;
    for (std::size_t i = 0; i < 16; ++i) w[i] = LoadWord<std::uint32_t>(blocks + 4 * i, std::endian::big);
    auto [a, b, c, d, e] = h;
#pragma GCC unroll 80
    for (std::size_t t = 0; t < 80; ++t) {
      if (t >= 16) {
        w[t % 16] = std::rotl(w[(t - 3) % 16] ^ w[(t - 8) % 16] ^ w[(t - 14) % 16] ^ w[t % 16], 1);
      }
      const std::uint32_t sum = std::rotl(a, 5) + RoundFunction(t, b, c, d) + e + w[t % 16];
      e = d;
      d = c;
      c = std::rotl(b, 30);
      b = a;
      a = sum;
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
  }
}

void Sha1State::Finish(std::span<std::uint8_t> digest) {
  PadAndCompress(*this, 8, std::endian::big);
  StoreWords(h, digest, std::endian::big);
}

}  // namespace tolven

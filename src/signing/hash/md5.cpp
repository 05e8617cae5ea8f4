#include "signing/hash/md5.h"

#include <bit>

#include "signing/hash/block_feed.h"

namespace tolven {
namespace {

// RFC 1321 section 3.4: the integer part of 4294967296 * abs(sin(i)), i = 1 to 64.
constexpr std::array<std::uint32_t, 64> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr std::array<std::array<int, 4>, 4> kRotations = {
    {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}}};

// Which of the 16 message words step i uses: i, 5i + 1, 3i + 5, 7i, modulo 16.
constexpr std::size_t WordOfStep(std::size_t i) {
  constexpr std::array<std::size_t, 4> kFactor = {1, 5, 3, 7};
  constexpr std::array<std::size_t, 4> kOffset = {0, 1, 5, 0};
  return (kFactor[i / 16] * i + kOffset[i / 16]) % 16;
}

constexpr std::uint32_t Mix(std::size_t round, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  switch (round) {
    case 0:
      return (b & c) | (~b & d);
    case 1:
      return (b & d) | (c & ~d);
    case 2:
      return b ^ c ^ d;
    default:
      return c ^ (b | ~d);
  }
}

}  // namespace

void Md5State::Compress(const std::uint8_t* blocks, std::size_t count) {
  for (; count != 0; --count, blocks += kBlockLength) {
    std::array<std::uint32_t, 16> x;
    for (std::size_t i = 0; i < 16; ++i) x[i] = LoadWord<std::uint32_t>(blocks + 4 * i, std::endian::little);
    auto [a, b, c, d] = h;
#pragma GCC unroll 64
    for (std::size_t i = 0; i < 64; ++i) {
      const std::uint32_t sum = a + Mix(i / 16, b, c, d) + x[WordOfStep(i)] + kSines[i];
      a = d;
      d = c;
      c = b;
      b += std::rotl(sum, kRotations[i / 16][i % 4]);
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
  }
}

void Md5State::Finish(std::span<std::uint8_t> digest) {
  PadAndCompress(*this, 8, std::endian::little);
  StoreWords(h, digest, std::endian::little);
}

}  // namespace tolven

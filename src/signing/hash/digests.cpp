#include "signing/hash/digests.h"

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

// FIPS 180-4 sections 4.1.1 and 4.2.1: function and constant of the 20 rounds that round t belongs to.
constexpr std::uint32_t RoundFunction(std::size_t t, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  if (t < 20) return ((b & c) ^ (~b & d)) + 0x5a827999;
  if (t < 40) return (b ^ c ^ d) + 0x6ed9eba1;
  if (t < 60) return ((b & c) ^ (b & d) ^ (c & d)) + 0x8f1bbcdc;
  return (b ^ c ^ d) + 0xca62c1d6;
}

// FIPS 180-4 section 4.2.3: the first 64 bits of the fractional parts of the cube roots of the first 80
// primes.
constexpr std::array<std::uint64_t, 80> kRoundConstants = {
    0x428a2f98d728ae22, 0x7137449123ef65cd, 0xb5c0fbcfec4d3b2f, 0xe9b5dba58189dbbc, 0x3956c25bf348b538,
    0x59f111f1b605d019, 0x923f82a4af194f9b, 0xab1c5ed5da6d8118, 0xd807aa98a3030242, 0x12835b0145706fbe,
    0x243185be4ee4b28c, 0x550c7dc3d5ffb4e2, 0x72be5d74f27b896f, 0x80deb1fe3b1696b1, 0x9bdc06a725c71235,
    0xc19bf174cf692694, 0xe49b69c19ef14ad2, 0xefbe4786384f25e3, 0x0fc19dc68b8cd5b5, 0x240ca1cc77ac9c65,
    0x2de92c6f592b0275, 0x4a7484aa6ea6e483, 0x5cb0a9dcbd41fbd4, 0x76f988da831153b5, 0x983e5152ee66dfab,
    0xa831c66d2db43210, 0xb00327c898fb213f, 0xbf597fc7beef0ee4, 0xc6e00bf33da88fc2, 0xd5a79147930aa725,
    0x06ca6351e003826f, 0x142929670a0e6e70, 0x27b70a8546d22ffc, 0x2e1b21385c26c926, 0x4d2c6dfc5ac42aed,
    0x53380d139d95b3df, 0x650a73548baf63de, 0x766a0abb3c77b2a8, 0x81c2c92e47edaee6, 0x92722c851482353b,
    0xa2bfe8a14cf10364, 0xa81a664bbc423001, 0xc24b8b70d0f89791, 0xc76c51a30654be30, 0xd192e819d6ef5218,
    0xd69906245565a910, 0xf40e35855771202a, 0x106aa07032bbd1b8, 0x19a4c116b8d2d0c8, 0x1e376c085141ab53,
    0x2748774cdf8eeb99, 0x34b0bcb5e19b48a8, 0x391c0cb3c5c95a63, 0x4ed8aa4ae3418acb, 0x5b9cca4f7763e373,
    0x682e6ff3d6b2b8a3, 0x748f82ee5defb2fc, 0x78a5636f43172f60, 0x84c87814a1f0ab72, 0x8cc702081a6439ec,
    0x90befffa23631e28, 0xa4506cebde82bde9, 0xbef9a3f7b2c67915, 0xc67178f2e372532b, 0xca273eceea26619c,
    0xd186b8c721c0c207, 0xeada7dd6cde0eb1e, 0xf57d4f7fee6ed178, 0x06f067aa72176fba, 0x0a637dc5a2c898a6,
    0x113f9804bef90dae, 0x1b710b35131c471b, 0x28db77f523047d84, 0x32caab7b40c72493, 0x3c9ebe0a15c9bebc,
    0x431d67c49c100d4c, 0x4cc5d4becb3e42b6, 0x597f299cfc657e2a, 0x5fcb6fab3ad6faec, 0x6c44198c4a475817};

inline std::uint64_t Schedule(const std::array<std::uint64_t, 16>& w, std::size_t t) {
  const std::uint64_t w2 = w[(t - 2) % 16];
  const std::uint64_t w15 = w[(t - 15) % 16];
  const std::uint64_t s1 = std::rotr(w2, 19) ^ std::rotr(w2, 61) ^ (w2 >> 6);
  const std::uint64_t s0 = std::rotr(w15, 1) ^ std::rotr(w15, 8) ^ (w15 >> 7);
  return s1 + w[(t - 7) % 16] + s0 + w[t % 16];
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

Sha512State Sha512State::Sha384() {
  Sha512State state;
  state.h = {0xcbbb9d5dc1059ed8, 0x629a292a367cd507, 0x9159015a3070dd17, 0x152fecd8f70e5939,
             0x67332667ffc00b31, 0x8eb44a8768581511, 0xdb0c2e0d64f98fa7, 0x47b5481dbefa4fa4};
  return state;
}

void Sha512State::Compress(const std::uint8_t* blocks, std::size_t count) {
  for (; count != 0; --count, blocks += kBlockLength) {
    std::array<std::uint64_t, 16> w;
    for (std::size_t i = 0; i < 16; ++i) w[i] = LoadWord<std::uint64_t>(blocks + 8 * i, std::endian::big);
    std::array<std::uint64_t, 8> s = h;
#pragma GCC unroll 80
    for (std::size_t t = 0; t < 80; ++t) {
      if (t >= 16) w[t % 16] = Schedule(w, t);
      const std::uint64_t sum1 = std::rotr(s[4], 14) ^ std::rotr(s[4], 18) ^ std::rotr(s[4], 41);
      const std::uint64_t choice = (s[4] & s[5]) ^ (~s[4] & s[6]);
      const std::uint64_t t1 = s[7] + sum1 + choice + kRoundConstants[t] + w[t % 16];
      const std::uint64_t sum0 = std::rotr(s[0], 28) ^ std::rotr(s[0], 34) ^ std::rotr(s[0], 39);
      const std::uint64_t majority = (s[0] & s[1]) ^ (s[0] & s[2]) ^ (s[1] & s[2]);
      s = {t1 + sum0 + majority, s[0], s[1], s[2], s[3] + t1, s[4], s[5], s[6]};
    }
    for (std::size_t i = 0; i < 8; ++i) h[i] += s[i];
  }
}

void Sha512State::Finish(std::span<std::uint8_t> digest) {
  PadAndCompress(*this, 16, std::endian::big);
  StoreWords(h, digest, std::endian::big);
}

}  // namespace tolven

// SHA-256 in a file of its own: every signed or verified byte passes through here, so it has two forms.

#include <bit>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

#include "signing/hash/block_feed.h"
#include "signing/hash/digests.h"

namespace tolven {

// FIPS 180-4 section 4.2.2: the first 32 bits of the fractional parts of the cube roots of the first 64
// primes.
constinit const std::array<std::uint32_t, 64> kSha256RoundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

namespace {

inline std::uint32_t Schedule(const std::array<std::uint32_t, 16>& w, std::size_t t) {
  const std::uint32_t w2 = w[(t - 2) % 16];
  const std::uint32_t w15 = w[(t - 15) % 16];
  const std::uint32_t s1 = std::rotr(w2, 17) ^ std::rotr(w2, 19) ^ (w2 >> 10);
  const std::uint32_t s0 = std::rotr(w15, 7) ^ std::rotr(w15, 18) ^ (w15 >> 3);
  return s1 + w[(t - 7) % 16] + s0 + w[t % 16];
}

using CompressFunction = void (*)(std::array<std::uint32_t, 8>&, const std::uint8_t*, std::size_t);

}  // namespace

void Sha256CompressPortable(std::array<std::uint32_t, 8>& state, const std::uint8_t* blocks,
                            std::size_t count) {
  for (; count != 0; --count, blocks += Sha256State::kBlockLength) {
    // The message schedule only looks 16 words back: a ring of 16 is enough.
    std::array<std::uint32_t, 16> w;
    for (std::size_t i = 0; i < 16; ++i) w[i] = LoadWord<std::uint32_t>(blocks + 4 * i, std::endian::big);
    auto [a, b, c, d, e, f, g, h] = state;
#pragma GCC unroll 64
    for (std::size_t t = 0; t < 64; ++t) {
      if (t >= 16) w[t % 16] = Schedule(w, t);
      const std::uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
      const std::uint32_t choice = (e & f) ^ (~e & g);
      const std::uint32_t t1 = h + sum1 + choice + kSha256RoundConstants[t] + w[t % 16];
      const std::uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
      const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
      h = g;
      g = f;
      f = e;
      e = d + t1;
      d = c;
      c = b;
      b = a;
      a = t1 + sum0 + majority;
    }
    const std::array<std::uint32_t, 8> sums = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < 8; ++i) state[i] += sums[i];
  }
}

#if defined(__x86_64__)

// Intel Architecture Software Developer's Manual, CPUID: leaf 1 ECX bit 9 SSSE3 and bit 19 SSE4.1, leaf 7 EBX
// bit 29 SHA. The 128-bit registers they use need no further leave of the operating system on x86-64.
bool Sha256HasInstructions() {
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0) return false;
  const bool shuffles = (c & (1u << 9)) != 0 && (c & (1u << 19)) != 0;
  if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return false;
  return shuffles && (b & (1u << 29)) != 0;
}

// SHA256RNDS2 does two rounds on the state held as the two vectors {f, e, b, a} and {h, g, d, c} (lowest lane
// first); SHA256MSG1 and SHA256MSG2 make four words of the message schedule. The state is rearranged before
// and after the loop, so any number of blocks costs that once.
__attribute__((target("sha,sse4.1,ssse3"))) void Sha256CompressInstructions(std::array<std::uint32_t, 8>& h,
                                                                            const std::uint8_t* blocks,
                                                                            std::size_t count) {
  const __m128i swapBytes = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  const auto* constants = reinterpret_cast<const __m128i*>(kSha256RoundConstants.data());
  auto* state = reinterpret_cast<__m128i*>(h.data());

  const __m128i badc = _mm_shuffle_epi32(_mm_loadu_si128(state), 0xb1);      // lanes: b a d c
  const __m128i hgfe = _mm_shuffle_epi32(_mm_loadu_si128(state + 1), 0x1b);  // lanes: h g f e
  __m128i feba = _mm_alignr_epi8(badc, hgfe, 8);                             // lanes: f e b a
  __m128i hgdc = _mm_blend_epi16(hgfe, badc, 0xf0);                          // lanes: h g d c

  for (; count != 0; --count, blocks += Sha256State::kBlockLength) {
    const __m128i febaBefore = feba;
    const __m128i hgdcBefore = hgdc;
    const auto* message = reinterpret_cast<const __m128i*>(blocks);
    __m128i w[4];
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) {
      __m128i& current = w[i % 4];
      if (i < 4) {
        current = _mm_shuffle_epi8(_mm_loadu_si128(message + i), swapBytes);
      } else {
        // Words 16 back are in `current`, 15 back in the next vector, 7 back across the last two.
        const __m128i sevenBack = _mm_alignr_epi8(w[(i + 3) % 4], w[(i + 2) % 4], 4);
        current = _mm_add_epi32(_mm_sha256msg1_epu32(current, w[(i + 1) % 4]), sevenBack);
        current = _mm_sha256msg2_epu32(current, w[(i + 3) % 4]);
      }
      const __m128i sums = _mm_add_epi32(current, _mm_loadu_si128(constants + i));
      hgdc = _mm_sha256rnds2_epu32(hgdc, feba, sums);
      feba = _mm_sha256rnds2_epu32(feba, hgdc, _mm_shuffle_epi32(sums, 0x0e));
    }
    feba = _mm_add_epi32(feba, febaBefore);
    hgdc = _mm_add_epi32(hgdc, hgdcBefore);
  }

  const __m128i abef = _mm_shuffle_epi32(feba, 0x1b);  // lanes: a b e f
  const __m128i cdgh = _mm_shuffle_epi32(hgdc, 0x1b);  // lanes: c d g h
  _mm_storeu_si128(state, _mm_unpacklo_epi64(abef, cdgh));
  _mm_storeu_si128(state + 1, _mm_unpackhi_epi64(abef, cdgh));
}

#else

bool Sha256HasInstructions() {
  return false;
}

void Sha256CompressInstructions(std::array<std::uint32_t, 8>& h, const std::uint8_t* blocks,
                                std::size_t count) {
  Sha256CompressPortable(h, blocks, count);
}

#endif

void Sha256State::Compress(const std::uint8_t* blocks, std::size_t count) {
  static const CompressFunction kCompress =
      Sha256HasInstructions() ? Sha256CompressInstructions : Sha256CompressPortable;
  kCompress(h, blocks, count);
}

void Sha256State::Finish(std::span<std::uint8_t> digest) {
  PadAndCompress(*this, 8, std::endian::big);
  StoreWords(h, digest, std::endian::big);
}

}  // namespace tolven

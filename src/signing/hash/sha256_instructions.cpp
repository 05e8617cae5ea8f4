#include "signing/hash/sha256.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace tolven {

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

}  // namespace tolven

// CRC-32 by folding: V. Gopal, E. Ozturk, J. Guilford et al., "Fast CRC Computation for Generic Polynomials
// Using PCLMULQDQ Instruction", Intel, 2009.
//
// The bytes are a polynomial over GF(2), and only its remainder matters. A 128-bit piece H that stands n bits
// above another piece L may be added to it after a multiplication by x^n mod P:  H * x^n + L  ==  H * (x^n
// mod P) + L. Four pieces are folded 512 bits forward side by side, to hide the latency of the
// multiplication, then onto each other; the last 128 bits go through the tables like any other 16 bytes.

#include "cslib/crc32_kernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <array>

namespace tolven::crc32 {
namespace {

// x^n mod P in reflected form (bit 31 is x^0), for the polynomial of IEEE 802.3.
constexpr std::uint32_t PowerOfX(int n) {
  std::uint32_t value = 0x80000000U;
  while (n-- > 0) value = (value >> 1) ^ ((value & 1U) != 0 ? 0xEDB88320U : 0U);
  return value;
}

// The two multipliers that move 128 bits `distance` bits forward: one for the half that stands 64 bits
// higher, which in reflected order is the low one. A reflected product of 64 by 64 bits comes out one bit too
// low, and the 32-bit constant stands in the upper half of its 64 bits; the exponents and the shift by one
// make up for both.
struct Fold {
  std::uint64_t low, high;
};
constexpr Fold FoldBy(int distance) {
  return {std::uint64_t{PowerOfX(distance + 32)} << 1, std::uint64_t{PowerOfX(distance - 32)} << 1};
}
constexpr Fold kFold512 = FoldBy(512);
constexpr Fold kFold128 = FoldBy(128);
// The values printed in the paper for this polynomial.
static_assert(kFold512.low == 0x154442BD4U && kFold512.high == 0x1C6E41596U);
static_assert(kFold128.low == 0x1751997D0U && kFold128.high == 0x0CCAA009EU);

constexpr std::size_t kLane = 16;                 // bytes of one 128-bit piece
constexpr std::size_t kStep = 4 * kLane;          // bytes of one round
constexpr std::size_t kWorthFolding = 2 * kStep;  // below, setting up costs more than it saves

[[gnu::target("pclmul,sse4.1")]] inline __m128i Load(const std::uint8_t* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

[[gnu::target("pclmul,sse4.1")]] inline __m128i FoldOnto(__m128i piece, __m128i next, __m128i multipliers) {
  const __m128i low = _mm_clmulepi64_si128(piece, multipliers, 0x00);
  const __m128i high = _mm_clmulepi64_si128(piece, multipliers, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

[[gnu::target("pclmul,sse4.1")]] inline __m128i Multipliers(const Fold& fold) {
  return _mm_set_epi64x(static_cast<long long>(fold.high), static_cast<long long>(fold.low));
}

}  // namespace

bool HasFolding() {
  return __builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("sse4.1") != 0;
}

[[gnu::target("pclmul,sse4.1")]] std::uint32_t UpdateFolded(std::uint32_t crc, const std::uint8_t* bytes,
                                                            std::size_t count) {
  if (count < kWorthFolding) return UpdateSliced(crc, bytes, count);
  // The register is added to the first four bytes, just as a table step does.
  __m128i a = _mm_xor_si128(Load(bytes), _mm_cvtsi32_si128(static_cast<int>(crc)));
  __m128i b = Load(bytes + kLane);
  __m128i c = Load(bytes + 2 * kLane);
  __m128i d = Load(bytes + 3 * kLane);
  bytes += kStep;
  count -= kStep;

  const __m128i by512 = Multipliers(kFold512);
  for (; count >= kStep; bytes += kStep, count -= kStep) {
    a = FoldOnto(a, Load(bytes), by512);
    b = FoldOnto(b, Load(bytes + kLane), by512);
    c = FoldOnto(c, Load(bytes + 2 * kLane), by512);
    d = FoldOnto(d, Load(bytes + 3 * kLane), by512);
  }

  const __m128i by128 = Multipliers(kFold128);
  a = FoldOnto(FoldOnto(FoldOnto(a, b, by128), c, by128), d, by128);
  for (; count >= kLane; bytes += kLane, count -= kLane) a = FoldOnto(a, Load(bytes), by128);

  // What is left is congruent to everything read so far, with the register already in it.
  alignas(kLane) std::array<std::uint8_t, kLane> rest;
  _mm_store_si128(reinterpret_cast<__m128i*>(rest.data()), a);
  return UpdateSliced(UpdateSliced(0, rest.data(), rest.size()), bytes, count);
}

}  // namespace tolven::crc32

#endif

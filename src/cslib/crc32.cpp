#include "cslib/crc32.h"

#include <algorithm>
#include <bit>
#include <new>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "cslib/bytes.h"

// From the slowest to the fastest:
//
//   bytewise  1 byte a step, and each step waits for the table look-up of the one before it
//   sliced    8 bytes a step whose eight look-ups do not wait for each other
//   folded    64 bytes a step in eight independent multiplications, without any table
//   wide      256 bytes a step, four pieces of 16 bytes an instruction
//
// An archive takes the checksum of every byte that goes in or out. Beside the decoder, which spends a few
// cycles on a byte, the sliced form could still be seen in a profile; the folded one cannot.

namespace tolven {
namespace crc32 {
namespace {

constexpr std::size_t kSlices = 8;

// kSlice[k][b] is the register after byte b and k zero bytes, starting from 0. The register is linear in its
// input, so the eight bytes of a step can be looked up independently, each in the table of the bytes that
// follow it: the first byte is followed by seven others and goes through kSlice[7], the last one through the
// table of the definition. The register itself is added to the first four bytes, since that is where it would
// meet them. ("Slicing-by-8": M. E. Kounavis, F. L. Berry, "A Systematic Approach to Building High
// Performance Software-based CRC Generators", ISCC 2005.)
constexpr auto kSlice = [] {
  std::array<std::array<std::uint32_t, 256>, kSlices> slice{};
  slice[0] = kCrc32Table;
  for (std::size_t k = 1; k < kSlices; ++k) {
    for (std::size_t b = 0; b < 256; ++b) {
      const std::uint32_t before = slice[k - 1][b];
      slice[k][b] = (before >> 8) ^ kCrc32Table[before & 0xFFU];
    }
  }
  return slice;
}();

}  // namespace

std::uint32_t UpdateBytewise(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) crc = (crc >> 8) ^ kCrc32Table[(crc ^ bytes[i]) & 0xFFU];
  return crc;
}

std::uint32_t UpdateSliced(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  for (; count >= kSlices; bytes += kSlices, count -= kSlices) {
    const std::uint32_t low = crc ^ LoadLittle32(bytes);
    const std::uint32_t high = LoadLittle32(bytes + 4);
    crc = kSlice[7][low & 0xFFU] ^ kSlice[6][(low >> 8) & 0xFFU] ^ kSlice[5][(low >> 16) & 0xFFU] ^
          kSlice[4][low >> 24] ^ kSlice[3][high & 0xFFU] ^ kSlice[2][(high >> 8) & 0xFFU] ^
          kSlice[1][(high >> 16) & 0xFFU] ^ kSlice[0][high >> 24];
  }
  return UpdateBytewise(crc, bytes, count);
}

#if defined(__x86_64__)

// Folding: V. Gopal, E. Ozturk, J. Guilford et al., "Fast CRC Computation for Generic Polynomials Using
// PCLMULQDQ Instruction", Intel, 2009.
//
// The bytes are a polynomial over GF(2), and only its remainder matters. A 128-bit piece H that stands n bits
// above another piece L may be added to it after a multiplication by x^n mod P:  H * x^n + L  ==  H * (x^n
// mod P) + L. Four pieces are folded 512 bits forward side by side, to hide the latency of the
// multiplication, then onto each other; the last 128 bits go through the tables like any other 16 bytes.
// That last step could be a reduction by two more multiplications (Barrett); for 16 bytes a buffer the tables
// cost as much and need no further constants.
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
constexpr Fold kFold2048 = FoldBy(2048);
constexpr Fold kFold512 = FoldBy(512);
constexpr Fold kFold128 = FoldBy(128);
// The values printed in the paper for this polynomial.
static_assert(kFold512.low == 0x154442BD4U && kFold512.high == 0x1C6E41596U);
static_assert(kFold128.low == 0x1751997D0U && kFold128.high == 0x0CCAA009EU);

constexpr std::size_t kLane = 16;         // bytes of one 128-bit piece
constexpr std::size_t kStep = 4 * kLane;  // bytes of one round
// Below this, setting up costs more than it saves. It is also the least that the code below can take: four
// pieces to begin with, and one round.
constexpr std::size_t kWorthFolding = 2 * kStep;

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

// Four registers of four pieces each, 2048 bits forward a round; then onto each other, and 512 bits forward
// with one of them. What is left of it, 64 bytes congruent to everything before, goes through the tables.
#define TOLVEN_WIDE [[gnu::target("avx512f,avx512bw,avx512vl,vpclmulqdq,pclmul,sse4.1")]]

bool HasWideFolding() {
  return HasFolding() && __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
         __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("vpclmulqdq") != 0;
}

namespace {

constexpr std::size_t kWideLane = 64, kWideStep = 4 * kWideLane;
// Below this the narrow form is as fast, and spares the processor the change to its widest registers.
constexpr std::size_t kWorthFoldingWide = 2048;
static_assert(kWorthFoldingWide >= kWideStep);

TOLVEN_WIDE inline __m512i LoadWide(const std::uint8_t* bytes) {
  return _mm512_loadu_si512(bytes);
}

TOLVEN_WIDE inline __m512i FoldOntoWide(__m512i pieces, __m512i next, __m512i multipliers) {
  const __m512i low = _mm512_clmulepi64_epi128(pieces, multipliers, 0x00);
  const __m512i high = _mm512_clmulepi64_epi128(pieces, multipliers, 0x11);
  return _mm512_ternarylogic_epi64(low, high, next, 0x96);  // the sum of the three
}

TOLVEN_WIDE inline __m512i MultipliersWide(const Fold& fold) {
  const auto low = static_cast<long long>(fold.low);
  const auto high = static_cast<long long>(fold.high);
  return _mm512_set_epi64(high, low, high, low, high, low, high, low);
}

}  // namespace

TOLVEN_WIDE std::uint32_t UpdateFoldedWide(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  if (count < kWorthFoldingWide) return UpdateFolded(crc, bytes, count);
  __m512i a =
      _mm512_xor_si512(LoadWide(bytes), _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(crc))));
  __m512i b = LoadWide(bytes + kWideLane);
  __m512i c = LoadWide(bytes + 2 * kWideLane);
  __m512i d = LoadWide(bytes + 3 * kWideLane);
  bytes += kWideStep;
  count -= kWideStep;

  const __m512i by2048 = MultipliersWide(kFold2048);
  for (; count >= kWideStep; bytes += kWideStep, count -= kWideStep) {
    a = FoldOntoWide(a, LoadWide(bytes), by2048);
    b = FoldOntoWide(b, LoadWide(bytes + kWideLane), by2048);
    c = FoldOntoWide(c, LoadWide(bytes + 2 * kWideLane), by2048);
    d = FoldOntoWide(d, LoadWide(bytes + 3 * kWideLane), by2048);
  }

  const __m512i by512 = MultipliersWide(kFold512);
  a = FoldOntoWide(FoldOntoWide(FoldOntoWide(a, b, by512), c, by512), d, by512);
  for (; count >= kWideLane; bytes += kWideLane, count -= kWideLane)
    a = FoldOntoWide(a, LoadWide(bytes), by512);

  alignas(kWideLane) std::array<std::uint8_t, kWideLane> rest;
  _mm512_store_si512(rest.data(), a);
  return UpdateSliced(UpdateSliced(0, rest.data(), rest.size()), bytes, count);
}

#undef TOLVEN_WIDE

#endif

}  // namespace crc32

namespace {

crc32::Kernel FastestKernel() {
#if defined(__x86_64__)
  if (crc32::HasWideFolding()) return crc32::UpdateFoldedWide;
  if (crc32::HasFolding()) return crc32::UpdateFolded;
#endif
  return crc32::UpdateSliced;
}

// Segment length of a handle made with 0.
constexpr std::uint32_t kDefaultSegment = 0x10000;

}  // namespace

std::uint32_t CRC32Buf(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  // Asked once, on first use, so that checksums taken during static initialisation work as well.
  static const crc32::Kernel kernel = FastestKernel();
  return kernel(crc, bytes, count);
}

// The register is a polynomial over GF(2), linear in what was fed: B moves what A left by x to the power of
// its bits, and adds what it would leave by itself. A power of two for each bit of the length makes that one
// multiplication for a block of 64 KiB, and at most 64.
namespace {

// left * right mod P, reflected: bit 31 is x^0. Each step adds `right` where `left` has a bit and multiplies
// it by x.
constexpr std::uint32_t Multiply(std::uint32_t left, std::uint32_t right) {
  std::uint32_t product = 0;
  for (; left != 0; left <<= 1) {
    product ^= right & (0U - (left >> 31));
    right = (right >> 1) ^ (0xEDB88320U & (0U - (right & 1U)));
  }
  return product;
}

// Entry k is x^(8 * 2^k): what 2^k bytes multiply by.
constexpr auto kPowerOfBytes = [] {
  std::array<std::uint32_t, 64> powers{};
  std::uint32_t power = 0x80000000U >> 8;
  for (std::uint32_t& entry : powers) {
    entry = power;
    power = Multiply(power, power);
  }
  return powers;
}();

}  // namespace

std::uint32_t Crc32Combine(std::uint32_t crcA, std::uint32_t crcB, std::uint64_t lengthB) {
  for (; lengthB != 0; lengthB &= lengthB - 1) {
    crcA = Multiply(crcA, kPowerOfBytes[static_cast<std::size_t>(std::countr_zero(lengthB))]);
  }
  return crcA ^ crcB;
}

int calccrcb(const std::uint8_t* bytes, std::int64_t count, std::uint64_t* crc) {
  // A step keeps 24 bits of the shifted register, so whatever stands above bit 31 is lost with the first
  // byte.
  if (count > 0) *crc = CRC32Buf(static_cast<std::uint32_t>(*crc), bytes, static_cast<std::size_t>(count));
  return 0;
}

std::unique_ptr<Crc32Handle> CRC32NewHandle(std::int32_t segmentLength) {
  const auto length = segmentLength == 0 ? kDefaultSegment : static_cast<std::uint32_t>(segmentLength);
  try {
    return std::make_unique<Crc32Handle>(Crc32Handle{0xFFFFFFFFU, 0, length, 0});
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::uint32_t CRC32HBuffer(Crc32Handle* handle, const std::uint8_t* bytes, std::uint32_t count,
                           bool stopAtSegmentEnd) {
  if (handle == nullptr) return 0;
  // The length of a segment may come from a file, and 0 there means that segments are not tracked. The sum is
  // taken in 64 bits for the same reason: position and count may both be close to 2^32.
  if (const std::uint32_t length = handle->segmentLength; length != 0) {
    if (stopAtSegmentEnd) count = std::min(count, length - handle->position);
    handle->position = static_cast<std::uint32_t>((std::uint64_t{handle->position} + count) % length);
  }
  handle->total += count;
  handle->crcRegister = CRC32Buf(handle->crcRegister, bytes, count);
  return count;
}

std::uint32_t CRC32FreeHandle(std::unique_ptr<Crc32Handle> handle) {
  return handle ? ~handle->crcRegister : 0;
}

}  // namespace tolven

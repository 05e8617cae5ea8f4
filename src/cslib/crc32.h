#pragma once

// CRC-32 of IEEE 802.3 in its reflected form (polynomial 0xEDB88320), the only checksum code of the engine.
//
// Everything here works on the register as it runs: no initial value is put in and no final inversion is
// done but where it says so. That is what lets an archive, which starts at 0, the checksum framing, which
// starts at 0xFFFFFFFF and stores the register as it is, and the older format, which has 64 bits for it,
// share one routine.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace tolven {

// Entry i is i shifted right eight times, XORed with the polynomial each time a one falls out.
inline constexpr std::array<std::uint32_t, 256> kCrc32Table = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1U) != 0 ? 0xEDB88320U : 0U);
    table[i] = value;
  }
  return table;
}();
static_assert(kCrc32Table[255] == 0x2D02EF8DU);

// The register after `count` more bytes; no initial value and no final inversion: the caller does both.
std::uint32_t CRC32Buf(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);

// The register after A and B, from `crcA`, the register after A, and `crcB`, that of B's `lengthB` bytes
// alone started at 0. So pieces can be fed side by side, all of them but the first from 0: what an archive
// stores for an entry, whose register starts at 0 and is never inverted, is the combination of the registers
// of its blocks.
std::uint32_t Crc32Combine(std::uint32_t crcA, std::uint32_t crcB, std::uint64_t lengthB);

// CRC32Buf over a register kept in 64 bits, for the older format. Nothing is done for a count <= 0. Always 0.
int calccrcb(const std::uint8_t* bytes, std::int64_t count, std::uint64_t* crc);

// A running checksum cut into segments. The register runs on over segment ends: the checksum of a segment is
// that of everything up to its end, so that segments that changed places are found as well.
struct Crc32Handle {
  std::uint32_t crcRegister;  // starts at 0xFFFFFFFF
  std::uint32_t position;     // inside the current segment
  std::uint32_t segmentLength;
  std::uint32_t total;  // bytes fed so far
};

// Null when memory is exhausted. 0 means 65536.
[[nodiscard]] std::unique_ptr<Crc32Handle> CRC32NewHandle(std::int32_t segmentLength);
// Feeds bytes, with `stopAtSegmentEnd` no further than the end of the segment. The number taken; 0 for null.
std::uint32_t CRC32HBuffer(Crc32Handle* handle, const std::uint8_t* bytes, std::uint32_t count,
                           bool stopAtSegmentEnd);
// Frees the handle and returns NOT of its register; 0 for null.
std::uint32_t CRC32FreeHandle(std::unique_ptr<Crc32Handle> handle);

namespace crc32 {

// The ways to run the register over bytes. All give the same register; CRC32Buf picks the fastest one that
// the machine has. They are named here so that a test can hold them against each other.
using Kernel = std::uint32_t (*)(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);

// One table step a byte: the definition.
std::uint32_t UpdateBytewise(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);
// Eight tables, eight bytes a step.
std::uint32_t UpdateSliced(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);

#if defined(__x86_64__)
// Folding with carry-less multiplication; only where HasFolding() is true.
bool HasFolding();
std::uint32_t UpdateFolded(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);
// The same with four multiplications an instruction; only where HasWideFolding() is true.
bool HasWideFolding();
std::uint32_t UpdateFoldedWide(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);
#endif

}  // namespace crc32
}  // namespace tolven

// The table-driven CRC-32: byte by byte, and eight bytes at a time ("slicing-by-8": M. E. Kounavis, F. L.
// Berry, "A Systematic Approach to Building High Performance Software-based CRC Generators", ISCC 2005).

#include <array>

#include "cslib/crc32.h"
#include "cslib/crc32_kernels.h"

namespace tolven::crc32 {
namespace {

constexpr std::size_t kSlices = 8;

// kSlice[k][b] is the register after byte b and k zero bytes, starting from 0. The register is linear in its
// input, so the eight bytes of a step can be looked up independently, each in the table of the bytes that
// follow it.
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

std::uint32_t LoadLittleEndian32(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

}  // namespace

std::uint32_t UpdateBytewise(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) crc = (crc >> 8) ^ kCrc32Table[(crc ^ bytes[i]) & 0xFFU];
  return crc;
}

std::uint32_t UpdateSliced(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  for (; count >= kSlices; bytes += kSlices, count -= kSlices) {
    const std::uint32_t low = crc ^ LoadLittleEndian32(bytes);
    const std::uint32_t high = LoadLittleEndian32(bytes + 4);
    crc = kSlice[7][low & 0xFFU] ^ kSlice[6][(low >> 8) & 0xFFU] ^ kSlice[5][(low >> 16) & 0xFFU] ^
          kSlice[4][low >> 24] ^ kSlice[3][high & 0xFFU] ^ kSlice[2][(high >> 8) & 0xFFU] ^
          kSlice[1][(high >> 16) & 0xFFU] ^ kSlice[0][high >> 24];
  }
  return UpdateBytewise(crc, bytes, count);
}

}  // namespace tolven::crc32

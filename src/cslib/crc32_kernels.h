#pragma once

// The ways to run the CRC-32 register over bytes. All give the same register; CRC32Buf picks the fastest one
// that the machine has. They are named here so that a test can hold them against each other.

#include <cstddef>
#include <cstdint>

namespace tolven::crc32 {

using Kernel = std::uint32_t (*)(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);

// One table step a byte: the definition.
std::uint32_t UpdateBytewise(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);
// Eight tables, eight bytes a step.
std::uint32_t UpdateSliced(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);

#if defined(__x86_64__)
// Folding with carry-less multiplication; only where HasFolding() is true.
bool HasFolding();
std::uint32_t UpdateFolded(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count);
#endif

}  // namespace tolven::crc32

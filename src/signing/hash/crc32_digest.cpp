#include <array>

#include "signing/hash/hash.h"

namespace tolven {
namespace {

// Entry i is what eight steps of the shift register make of the byte i.
constexpr std::array<std::uint32_t, 256> MakeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) != 0 ? 0xedb88320u : 0u);
    table[i] = value;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kTable = MakeTable();
static_assert(kTable[1] == 0x77073096 && kTable[255] == 0x2d02ef8d);

}  // namespace

std::uint32_t haCRC32Init() {
  return 0xffffffff;
}

std::uint32_t haCRC32Update(std::uint32_t value, const void* data, std::size_t length) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  for (std::size_t i = 0; i < length; ++i) value = kTable[(value ^ bytes[i]) & 0xff] ^ (value >> 8);
  return value;
}

std::uint32_t haCRC32Final(std::uint32_t value) {
  return value ^ 0xffffffff;
}

}  // namespace tolven

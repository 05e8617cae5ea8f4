#pragma once

// The one place that knows the byte order of archive files: little-endian, by shifts. No structure is laid
// over bytes.

#include <cstddef>
#include <cstdint>
#include <span>

namespace tolven {

template <typename Unsigned>
inline void StoreLittle(std::uint8_t* to, Unsigned value) {
  for (std::size_t i = 0; i < sizeof(Unsigned); ++i) to[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

template <typename Unsigned>
inline Unsigned LoadLittle(const std::uint8_t* from) {
  Unsigned value = 0;
  for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
    value = static_cast<Unsigned>(value | static_cast<Unsigned>(static_cast<Unsigned>(from[i]) << (8 * i)));
  }
  return value;
}

inline void UllongToBytes(std::uint64_t value, std::span<std::uint8_t, 8> bytes) {
  StoreLittle(bytes.data(), value);
}
inline void BytesToUllong(std::span<const std::uint8_t, 8> bytes, std::uint64_t& value) {
  value = LoadLittle<std::uint64_t>(bytes.data());
}

}  // namespace tolven

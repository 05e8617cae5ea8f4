#pragma once

// How the engine looks at memory: words in the byte order of its formats, and the cursors that stand in the
// buffers of a call.
//
// Both formats put the least significant byte first, and both coders go faster by whole words than by bytes.
// A word is loaded and stored by memcpy, which the compiler turns into one instruction: the address need not
// be aligned, and no object is looked at through a pointer of another type.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tolven {

inline std::uint32_t LoadLittle32(const std::uint8_t* from) {
  std::uint32_t value;
  std::memcpy(&value, from, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap32(value);
  return value;
}

inline std::uint64_t LoadLittle64(const std::uint8_t* from) {
  std::uint64_t value;
  std::memcpy(&value, from, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

inline void StoreLittle32(std::uint8_t* to, std::uint32_t value) {
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap32(value);
  std::memcpy(to, &value, sizeof value);
}

inline void StoreLittle64(std::uint8_t* to, std::uint64_t value) {
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  std::memcpy(to, &value, sizeof value);
}

// The input of a call: [begin, at) is taken, [at, end) is left. Whoever reads moves `at`, and the difference
// is what the caller is told. An empty range may be made of null pointers.
//
// The gate makes a cursor from the caller's pointer and length once it has checked them; from there on no
// length and no null pointer needs to be looked at again.
struct CsInput {
  const std::uint8_t* begin = nullptr;
  const std::uint8_t* at = nullptr;
  const std::uint8_t* end = nullptr;

  CsInput() = default;
  explicit CsInput(std::span<const std::uint8_t> bytes)
      : begin(bytes.data()), at(begin), end(begin + bytes.size()) {}

  [[nodiscard]] std::size_t Left() const { return static_cast<std::size_t>(end - at); }
  [[nodiscard]] std::size_t Taken() const { return static_cast<std::size_t>(at - begin); }
  [[nodiscard]] std::span<const std::uint8_t> Rest() const { return {at, Left()}; }
};

// The output of a call: [begin, at) is written, [at, end) is room. What lies behind `at` may be written and
// written again while a call runs, since fast paths store more than counts; nothing behind `end` ever is.
struct CsOutput {
  std::uint8_t* begin = nullptr;
  std::uint8_t* at = nullptr;
  std::uint8_t* end = nullptr;

  CsOutput() = default;
  explicit CsOutput(std::span<std::uint8_t> room) : begin(room.data()), at(begin), end(begin + room.size()) {}

  [[nodiscard]] std::size_t Room() const { return static_cast<std::size_t>(end - at); }
  [[nodiscard]] std::size_t Produced() const { return static_cast<std::size_t>(at - begin); }
  [[nodiscard]] std::span<std::uint8_t> Rest() const { return {at, Room()}; }
};

}  // namespace tolven

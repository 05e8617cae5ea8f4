#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tolven {

// What the block digests have in common (FIPS 180-4 section 5, RFC 1321 section 3): whole blocks go straight
// from the caller's buffer to Compress, only the remainder is copied.
template <typename State>
void FeedBlocks(State& state, std::span<const std::uint8_t> data) {
  constexpr std::size_t kBlock = State::kBlockLength;
  const std::size_t waiting = state.length % kBlock;
  state.length += data.size();
  if (waiting != 0) {
    const std::size_t taken = std::min(kBlock - waiting, data.size());
    std::copy_n(data.begin(), taken, state.tail.begin() + static_cast<std::ptrdiff_t>(waiting));
    data = data.subspan(taken);
    if (waiting + taken < kBlock) return;
    state.Compress(state.tail.data(), 1);
  }
  if (const std::size_t blocks = data.size() / kBlock; blocks != 0) {
    state.Compress(data.data(), blocks);
    data = data.subspan(blocks * kBlock);
  }
  std::copy(data.begin(), data.end(), state.tail.begin());
}

// Padding: one bit, zeros, and the length in bits at the end of a block. lengthField is 8 or 16 bytes; the
// lengths here never need more than the last 8 of them.
template <typename State>
void PadAndCompress(State& state, std::size_t lengthField, std::endian order) {
  constexpr std::size_t kBlock = State::kBlockLength;
  std::size_t used = state.length % kBlock;
  state.tail[used++] = 0x80;
  if (used > kBlock - lengthField) {
    std::fill(state.tail.begin() + static_cast<std::ptrdiff_t>(used), state.tail.end(), std::uint8_t{0});
    state.Compress(state.tail.data(), 1);
    used = 0;
  }
  std::fill(state.tail.begin() + static_cast<std::ptrdiff_t>(used), state.tail.end(), std::uint8_t{0});
  const std::uint64_t bits = state.length * 8;
  for (std::size_t i = 0; i < 8; ++i) {
    const std::size_t place = order == std::endian::big ? kBlock - 1 - i : kBlock - lengthField + i;
    state.tail[place] = static_cast<std::uint8_t>(bits >> (8 * i));
  }
  state.Compress(state.tail.data(), 1);
}

// A word of the given byte order from any address.
template <typename Word>
inline Word LoadWord(const std::uint8_t* from, std::endian order) {
  Word value;
  std::memcpy(&value, from, sizeof value);
  if (order == std::endian::native) return value;
  if constexpr (sizeof(Word) == 4) {
    return __builtin_bswap32(value);
  } else {
    return __builtin_bswap64(value);
  }
}

// Writes as many bytes as the digest holds: SHA-384 cuts the last words off.
template <typename Word, std::size_t kWords>
void StoreWords(const std::array<Word, kWords>& words, std::span<std::uint8_t> digest, std::endian order) {
  for (std::size_t i = 0; i < digest.size() && i < kWords * sizeof(Word); ++i) {
    const std::size_t byte = i % sizeof(Word);
    const std::size_t shift = 8 * (order == std::endian::big ? sizeof(Word) - 1 - byte : byte);
    digest[i] = static_cast<std::uint8_t>(words[i / sizeof(Word)] >> shift);
  }
}

}  // namespace tolven

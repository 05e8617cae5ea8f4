#pragma once

// The LZC code stream: LZW as Unix compress(1) writes it behind its three header bytes.
//
// Codes are packed from the least significant bit on, eight codes of n bits to a group of n bytes. The width
// starts at 9 bits and grows when the dictionary outgrows it; CLEAR starts dictionary and width anew. Where
// the width changes, the rest of the current group is left out: the first programs of this kind wrote and
// read whole groups, and what they did has become the format.
//
//   0..255   a byte
//   256      CLEAR, in block mode; else the first string
//   257..    strings, in the order in which they were met: each code but the first brings a new one, which is
//            the string of the code before it and the first byte of its own

// "abababa" is coded as 'a', 'b', 257 ("ab"), 259 ("aba"). The last code is one that the reader does not have
// yet when it comes: the string that the code itself brings in, which can only be the one before it ("ab")
// and its own first byte. Both coders enter a string when they know its last byte, so the writer is ahead by
// just this one.

#include <cstdint>

namespace tolven::lzc {

inline constexpr int kInitBits = 9;
inline constexpr int kWriteMaxBits = 13;  // what the compressor uses
inline constexpr int kReadMaxBits = 14;   // what the decompressor accepts
inline constexpr std::uint32_t kWriteMaxCodes = 1U << kWriteMaxBits;
inline constexpr std::uint32_t kReadMaxCodes = 1U << kReadMaxBits;

// The parameter of the stream header: the widest code, and whether CLEAR exists.
inline constexpr std::uint8_t kBlockMode = 0x80;
inline constexpr std::uint8_t kMaxBitsMask = 0x1F;

inline constexpr std::uint32_t kLiterals = 256;
inline constexpr std::uint32_t kClear = 256;  // in block mode
inline constexpr std::uint32_t kFirstFree = 257;

inline constexpr std::uint32_t kCodesPerGroup = 8;

// The largest number of dictionary entries before the width must grow: the last width has no limit but the
// dictionary's own.
constexpr std::uint32_t MaxCode(int bits, int maxBits) {
  return (1U << bits) - (bits < maxBits ? 1U : 0U);
}

}  // namespace tolven::lzc

#pragma once

// The LZH bit stream: blocks of RFC 1951 (fixed and dynamic only, never stored) behind the 8-byte stream
// header and a preamble of 2 + r bits, with a window of 16 KiB and one zero byte after the last block. The
// tables that writer and reader share stand here once.

#include <array>
#include <cstddef>
#include <cstdint>

namespace tolven::lzh {

// Half of what RFC 1951 allows. A reader of this format may rely on it: no distance is longer.
inline constexpr int kWindowBits = 14;
inline constexpr std::uint32_t kWindowSize = 1U << kWindowBits;  // the dictionary
inline constexpr std::uint32_t kMinMatch = 3;
inline constexpr std::uint32_t kMaxMatch = 258;

inline constexpr int kLiterals = 256;
inline constexpr int kEndBlock = 256;
inline constexpr int kLengthCodes = 29;
inline constexpr int kLitLenCodes = kLiterals + 1 + kLengthCodes;  // 286
inline constexpr int kDistCodes = 30;
inline constexpr int kBitLengthCodes = 19;
inline constexpr int kMaxCodeBits = 15;
inline constexpr int kMaxBitLengthBits = 7;

inline constexpr int kPreambleCountBits = 2;  // how many bits to skip in front of the first block

inline constexpr int kBlockFixed = 1;
inline constexpr int kBlockDynamic = 2;

inline constexpr int kRepeatPrevious = 16;  // 3..6 times, 2 bits
inline constexpr int kRepeatZero = 17;      // 3..10 times, 3 bits
inline constexpr int kRepeatZeroLong = 18;  // 11..138 times, 7 bits

// Extra bits of length codes 257..287; 99 marks the codes that do not exist.
inline constexpr std::array<std::uint8_t, 31> CsExtraLenBits1 = {
    0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0, 99, 99};
inline constexpr std::array<std::uint8_t, 30> CsExtraDistBits1 = {
    0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
inline constexpr std::array<std::uint8_t, 19> extra_blbits = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                              0, 0, 0, 0, 0, 0, 2, 3, 7};
// The order in which the lengths of the bit-length code are sent: those that are rarely used come last, where
// they need not be sent at all.
inline constexpr std::array<std::uint8_t, 19> bl_order = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                          11, 4,  12, 3, 13, 2, 14, 1, 15};

// --- Lengths and distances to codes

// `base_length` and `base_dist` hold the smallest length - 3 and distance - 1 of a code; `length_code` maps a
// length - 3 to its code. `dist_code` maps distance - 1 below 256 directly, larger ones by entry 256 + (that
// >> 7): from there on the extra bits are at least 7, so that 128 neighbours share a code.
struct CodeMaps {
  std::array<std::uint8_t, kLengthCodes> base_length{};
  std::array<std::uint8_t, 256> length_code{};
  std::array<std::uint16_t, kDistCodes> base_dist{};
  std::array<std::uint8_t, 512> dist_code{};
};

constexpr CodeMaps MakeCodeMaps() {
  CodeMaps maps;
  std::uint32_t length = 0;
  for (std::size_t code = 0; code + 1 < kLengthCodes; ++code) {
    maps.base_length[code] = static_cast<std::uint8_t>(length);
    for (std::uint32_t n = 0; n < (1U << CsExtraLenBits1[code]); ++n) {
      maps.length_code[length++] = static_cast<std::uint8_t>(code);
    }
  }
  // Length 258 would also fit code 27 with all extra bits set; the format gives it a code of its own.
  maps.length_code[255] = kLengthCodes - 1;
  maps.base_length[kLengthCodes - 1] = 0;  // no extra bits: the base is never subtracted

  std::uint32_t dist = 0;
  for (std::size_t code = 0; code < kDistCodes; ++code) {
    maps.base_dist[code] = static_cast<std::uint16_t>(dist);
    const std::uint32_t count = 1U << CsExtraDistBits1[code];
    for (std::uint32_t n = 0; n < count; n += (dist < 256 ? 1U : 128U)) {
      maps.dist_code[dist + n < 256 ? dist + n : 256 + ((dist + n) >> 7)] = static_cast<std::uint8_t>(code);
    }
    dist += count;
  }
  return maps;
}

inline constexpr CodeMaps kCodeMaps = MakeCodeMaps();
static_assert(kCodeMaps.length_code[254] == 27 && kCodeMaps.base_length[27] == 224);
static_assert(kCodeMaps.base_dist[29] == 24576 && kCodeMaps.dist_code[511] == 29);

// The bits of a Huffman code go out most significant first, everything else least significant first.
constexpr std::uint32_t ReverseBits(std::uint32_t code, int length) {
  code = ((code & 0x5555U) << 1) | ((code >> 1) & 0x5555U);
  code = ((code & 0x3333U) << 2) | ((code >> 2) & 0x3333U);
  code = ((code & 0x0F0FU) << 4) | ((code >> 4) & 0x0F0FU);
  code = ((code & 0x00FFU) << 8) | ((code >> 8) & 0x00FFU);
  return code >> (16 - length);
}

// Codes of the same length are consecutive numbers in the order of their symbols, and shorter codes come
// before longer ones; so the lengths say everything. For each length, the first code is what follows the last
// one of the length below it, with a zero behind.
//
// Canonical codes (RFC 1951, 3.2.2) for the first `count` lengths, already reversed. `bl_count` counts the
// symbols of each length; its entry 0 is ignored.
constexpr void GenCodes(const std::uint8_t* length, std::size_t count,
                        const std::array<std::uint16_t, kMaxCodeBits + 1>& bl_count, std::uint16_t* codes) {
  std::array<std::uint32_t, kMaxCodeBits + 1> next{};
  std::uint32_t code = 0;
  for (std::size_t bits = 1; bits <= kMaxCodeBits; ++bits) {
    code = (code + (bits > 1 ? bl_count[bits - 1] : 0U)) << 1;
    next[bits] = code;
  }
  for (std::size_t n = 0; n < count; ++n) {
    if (length[n] != 0) codes[n] = static_cast<std::uint16_t>(ReverseBits(next[length[n]]++, length[n]));
  }
}

// --- The two fixed trees

// The fixed literal code has two more symbols than can occur; they take part in numbering the others.
struct FixedTrees {
  std::array<std::uint8_t, 288> litLenLength{};
  std::array<std::uint16_t, 288> litLenCode{};
  std::array<std::uint8_t, kDistCodes> distLength{};
  std::array<std::uint16_t, kDistCodes> dist_code{};
};

constexpr FixedTrees MakeFixedTrees() {
  FixedTrees trees;
  std::array<std::uint16_t, kMaxCodeBits + 1> bl_count{};
  for (std::size_t n = 0; n < 288; ++n) {
    trees.litLenLength[n] = n < 144 ? 8 : n < 256 ? 9 : n < 280 ? 7 : 8;
    ++bl_count[trees.litLenLength[n]];
  }
  GenCodes(trees.litLenLength.data(), 288, bl_count, trees.litLenCode.data());
  for (std::uint32_t n = 0; n < kDistCodes; ++n) {
    trees.distLength[n] = 5;
    trees.dist_code[n] = static_cast<std::uint16_t>(ReverseBits(n, 5));
  }
  return trees;
}

inline constexpr FixedTrees kFixedTrees = MakeFixedTrees();
static_assert(kFixedTrees.litLenCode[kEndBlock] == 0 && kFixedTrees.litLenCode[143] == 0xFD);

}  // namespace tolven::lzh

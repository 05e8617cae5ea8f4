#pragma once

// Everything about the codes that does not depend on the data, computed by the compiler: how lengths and
// distances map to codes, and the two fixed trees of RFC 1951. A start call therefore builds no table.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/lzh_format.h"

namespace tolven::lzh {

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

// The fixed literal code has two more symbols than can occur; they take part in numbering the others.
struct FixedTrees {
  std::array<std::uint8_t, 288> litlen_length{};
  std::array<std::uint16_t, 288> litlen_code{};
  std::array<std::uint8_t, kDistCodes> dist_length{};
  std::array<std::uint16_t, kDistCodes> dist_code{};
};

constexpr FixedTrees MakeFixedTrees() {
  FixedTrees trees;
  std::array<std::uint16_t, kMaxCodeBits + 1> bl_count{};
  for (std::size_t n = 0; n < 288; ++n) {
    trees.litlen_length[n] = n < 144 ? 8 : n < 256 ? 9 : n < 280 ? 7 : 8;
    ++bl_count[trees.litlen_length[n]];
  }
  GenCodes(trees.litlen_length.data(), 288, bl_count, trees.litlen_code.data());
  for (std::uint32_t n = 0; n < kDistCodes; ++n) {
    trees.dist_length[n] = 5;
    trees.dist_code[n] = static_cast<std::uint16_t>(ReverseBits(n, 5));
  }
  return trees;
}

inline constexpr FixedTrees kFixedTrees = MakeFixedTrees();
static_assert(kFixedTrees.litlen_code[kEndBlock] == 0 && kFixedTrees.litlen_code[143] == 0xFD);

}  // namespace tolven::lzh

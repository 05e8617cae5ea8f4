#pragma once

// Decoding tables of the LZH decompressor: canonical Huffman codes (RFC 1951, 3.2.2) looked up with
// `rootBits` bits at once, longer codes through one sub-table. Every slot of a finished table is written,
// also for an incomplete set of codes: bit patterns that no code begins with decode to "invalid", with as
// many bits as it takes to know. So whoever looks something up needs no check of the index and none of what
// was found, but for its kind.
//
// An entry tells at once how many bits to drop, code and extra bits together, and what they mean. The extra
// bits are cut out of the bits that were dropped, which keeps them off the path from one look-up to the next.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "cslib/cslib.h"
#include "cslib/lzh_format.h"

namespace tolven::lzh {

// One entry is 32 bits, laid out so that the two most frequent questions are one instruction each: a literal
// shows in the sign, and the bits to drop are the lowest byte, which a shift by a variable count reads by
// itself. One entry:
//   bits 0..7    bits to drop: the code (behind the root bits, in a sub-table) and its extra bits
//   bits 8..11   bits of the code alone, or for a link the index bits of the sub-table
//   bits 12..14  kind, see below; meaningful when kSpecial is set
//   bit  15      kSpecial
//   bits 16..29  literal byte, length base, distance base, bit-length symbol, or start of the sub-table
//   bit  31      kLiteral
using Entry = std::uint32_t;
inline constexpr Entry kLiteral = 1U << 31;
inline constexpr Entry kSpecial = 1U << 15;
inline constexpr Entry kLink = kSpecial | 1U << 14;
inline constexpr Entry kEndOfBlock = kSpecial | 1U << 13;
inline constexpr Entry kInvalid = kSpecial | 1U << 12;

constexpr unsigned DropBits(Entry entry) {
  return entry & 0xFFU;
}
constexpr unsigned CodeBits(Entry entry) {
  return (entry >> 8) & 0xFU;
}
constexpr std::uint8_t LiteralByte(Entry entry) {
  return static_cast<std::uint8_t>(entry >> 16);
}
constexpr std::uint32_t Value(Entry entry) {
  return entry >> 16;
}  // of anything but a literal
constexpr bool Is(Entry entry, Entry kind) {
  return (entry & kind) == kind;
}

// The value of a length or distance: base plus the extra bits that stand behind the code.
constexpr std::uint32_t ValueWithExtra(Entry entry, std::uint64_t bits) {
  const std::uint64_t code = bits & ((std::uint64_t{1} << DropBits(entry)) - 1);
  return Value(entry) + static_cast<std::uint32_t>(code >> CodeBits(entry));
}

// What each symbol decodes to, before the code length is added in. For a length and a distance the lowest
// byte holds the number of extra bits, so that adding the length of the code gives the bits to drop. The
// fixed code has two symbols more than a dynamic one may have.
inline constexpr int kFixedLitLenCodes = 288;
extern const std::array<Entry, kFixedLitLenCodes> kLitLenResults;
extern const std::array<Entry, kDistCodes> kDistResults;
extern const std::array<Entry, kBitLengthCodes> kBitLengthResults;

// Root bits: larger tables miss less often and take longer to build for a block of some 16 000 symbols. The
// fast loop counts on these two: see its margins.
inline constexpr unsigned kLitLenRootBits = 11;
inline constexpr unsigned kDistRootBits = 8;
inline constexpr unsigned kBitLengthRootBits = 7;

// Entries for all tables of one block. A sub-table of b index bits that its codes fill has at least b + 1
// codes, so behind 11 root bits a code takes at most 16/5 entries (b = 4), behind 8 at most 128/8 (b = 7). An
// incomplete set has one more sub-table, filled in part. No set of lengths can need more.
inline constexpr std::size_t kLitLenPool = (1U << kLitLenRootBits) + kLitLenCodes * 16 / 5 + 16;
inline constexpr std::size_t kDistPool = (1U << kDistRootBits) + kDistCodes * 128 / 8 + 128;
inline constexpr std::size_t kBitLengthPool = 1U << kBitLengthRootBits;
static_assert(kLitLenPool + kDistPool + kBitLengthPool <= 4095);

// A table ready for use, over entries that somebody else keeps.
struct DecodeTable {
  const Entry* entries = nullptr;
  unsigned rootBits = 0;
};

// Builds a table into `pool` for one code length per symbol (0: unused; `results` holds at least as many
// symbols). CS_OK and `table` over the pool, its index bits being `maxRootBits`, or the longest length in use
// when that is smaller. Otherwise CS_E_TREE for a length above 15, no code at all or an over-subscribed set,
// or CS_E_TABLE_POOL.
CsResult BuildDecodeTable(std::span<const std::uint8_t> lengths, const Entry* results, unsigned maxRootBits,
                          std::span<Entry> pool, DecodeTable& table);

// The tables of fixed blocks, made by the compiler and shared by all streams.
extern const DecodeTable kFixedLitLenTable;
extern const DecodeTable kFixedDistTable;

}  // namespace tolven::lzh

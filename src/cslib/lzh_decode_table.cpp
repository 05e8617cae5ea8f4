#include "cslib/lzh_decode_table.h"

#include <algorithm>
#include <bit>

namespace tolven::lzh {
namespace {

// Bases of length codes 257..285 and of distance codes 0..29 (RFC 1951, 3.2.5).
constexpr std::array<std::uint16_t, kLengthCodes> cplens = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                                            15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                                            67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::array<std::uint16_t, kDistCodes> cpdist = {
    1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};

constexpr Entry WithValue(std::uint32_t value) {
  return value << 16;
}

}  // namespace

constexpr std::array<Entry, kFixedLitLenCodes> kLitLenResults = [] {
  std::array<Entry, kFixedLitLenCodes> results{};
  for (std::uint32_t symbol = 0; symbol < kLiterals; ++symbol) results[symbol] = kLiteral | WithValue(symbol);
  results[kEndBlock] = kEndOfBlock;
  for (std::size_t code = 0; code < CsExtraLenBits1.size(); ++code) {
    const bool exists = code < cplens.size();
    results[kEndBlock + 1 + code] = exists ? WithValue(cplens[code]) | CsExtraLenBits1[code] : kInvalid;
  }
  return results;
}();

// The two largest codes reach behind the window whatever their extra bits say.
constexpr std::array<Entry, kDistCodes> kDistResults = [] {
  std::array<Entry, kDistCodes> results{};
  for (std::size_t code = 0; code < results.size(); ++code) {
    const bool inWindow = cpdist[code] <= kWindowSize;
    results[code] = inWindow ? WithValue(cpdist[code]) | CsExtraDistBits1[code] : kInvalid;
  }
  return results;
}();

constexpr std::array<Entry, kBitLengthCodes> kBitLengthResults = [] {
  std::array<Entry, kBitLengthCodes> results{};
  for (std::uint32_t symbol = 0; symbol < results.size(); ++symbol) {
    results[symbol] = WithValue(symbol) | extra_blbits[symbol];
  }
  return results;
}();

namespace {

// The code length goes both into the bits to drop and into the bits of the code.
constexpr Entry WithCodeBits(Entry result, unsigned bits) {
  return result + bits * 0x101U;
}

// Canonical codes count upwards with the first bit of the code as the most significant; in the table the
// first bit is the lowest. The next code of the same length, or 0 behind the last one.
constexpr std::uint32_t NextReversedCode(std::uint32_t code, unsigned bits) {
  const std::uint32_t zeros = ~code & ((1U << bits) - 1);
  if (zeros == 0) return 0;
  const std::uint32_t carry = std::bit_floor(zeros);
  return (code & (carry - 1)) | carry;
}

using LengthCounts = std::array<std::uint16_t, kMaxCodeBits + 1>;

// Index bits for a sub-table that begins with a code of `bits` bits, `counts` holding the codes not yet
// placed: as many as its codes need until they fill it. Only in an incomplete set does the longest code end
// the search.
constexpr unsigned SubTableBits(const LengthCounts& counts, unsigned rootBits, unsigned bits,
                                unsigned maxBits) {
  std::uint32_t used = counts[bits];
  while (bits < maxBits && used < (1U << (bits - rootBits))) {
    ++bits;
    used = (used << 1) + counts[bits];
  }
  return bits - rootBits;
}

// Builds one table. It is all constexpr, so that the compiler makes the tables of the fixed codes with it.
// Not copied: next_ points into sorted_.
class TableBuilder {
 public:
  constexpr TableBuilder(const Entry* results, std::span<Entry> pool) : results_(results), pool_(pool) {}

  TableBuilder(const TableBuilder&) = delete;
  TableBuilder& operator=(const TableBuilder&) = delete;

  constexpr CsResult Build(std::span<const std::uint8_t> lengths, unsigned maxRootBits);
  [[nodiscard]] constexpr unsigned RootBits() const { return rootBits_; }

 private:
  constexpr CsResult SortSymbols(std::span<const std::uint8_t> lengths);
  constexpr void FillRoot();
  constexpr CsResult FillSubTables();
  constexpr void FillUnassigned();
  constexpr void Put(Entry result, unsigned bits);

  const Entry* results_;
  std::span<Entry> pool_;
  LengthCounts counts_{};
  std::array<std::uint16_t, kFixedLitLenCodes> sorted_;  // by code length, then by number
  const std::uint16_t* next_ = sorted_.data();
  unsigned maxBits_ = 0;
  unsigned rootBits_ = 0;
  std::uint32_t code_ = 0;  // the next code, reversed; 0 again when all are given out
  std::uint32_t subStart_ = 0;
  unsigned subBits_ = 0;
};

// Counts and sorts; refuses sets that no canonical code can have.
//
// With each bit the number of codes that could still be given out doubles, and every code takes one. Below
// zero, two symbols would share a code, and filling the tables would write beyond them: this check is what
// makes the rest of the file safe. Above zero at the end, some patterns have no code; that is allowed, since
// compressors make such sets for a single distance, and the patterns decode to "invalid".
constexpr CsResult TableBuilder::SortSymbols(std::span<const std::uint8_t> lengths) {
  if (lengths.size() > sorted_.size()) return CS_E_TREE;
  for (const std::uint8_t length : lengths) {
    if (length > kMaxCodeBits) return CS_E_TREE;
    ++counts_[length];
  }
  LengthCounts offsets{};
  std::uint16_t symbols = 0;
  std::int32_t left = 1;  // codes of the current length not yet given out
  for (unsigned bits = 1; bits <= kMaxCodeBits; ++bits) {
    left = left * 2 - counts_[bits];
    if (left < 0) return CS_E_TREE;
    offsets[bits] = symbols;
    symbols = static_cast<std::uint16_t>(symbols + counts_[bits]);
    if (counts_[bits] != 0) maxBits_ = bits;
  }
  if (symbols == 0) return CS_E_TREE;
  for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
    if (lengths[symbol] != 0) sorted_[offsets[lengths[symbol]]++] = static_cast<std::uint16_t>(symbol);
  }
  return CS_OK;
}

constexpr CsResult TableBuilder::Build(std::span<const std::uint8_t> lengths, unsigned maxRootBits) {
  if (const CsResult refused = SortSymbols(lengths); refused != CS_OK) return refused;
  rootBits_ = std::min(maxRootBits, maxBits_);
  if ((std::size_t{1} << rootBits_) > pool_.size()) return CS_E_TABLE_POOL;
  FillRoot();
  if (const CsResult refused = FillSubTables(); refused != CS_OK) return refused;
  FillUnassigned();
  return CS_OK;
}

// Codes that fit the root index. The table starts with two slots and doubles with each bit, so a code of n
// bits is written once and copied along. Slots no code has claimed yet are copied as they are and written
// later.
//
// Lengths 1, 2, 2 for A, B, C, whose codes are 0, 10 and 11, the first bit being the lowest of the index:
//
//   1 bit   [A -]         A is the pattern 0
//   copied  [A - A -]     with any bit above it
//   2 bits  [A B A C]     B is 01 as a number, C is 11
//
// A table of n root bits is written from end to end once for all lengths together, where filling in each code
// at all of its places would jump through it for each short code.
constexpr void TableBuilder::FillRoot() {
  Entry* table = pool_.data();
  table[0] = table[1] = 0;
  for (unsigned bits = 1;; ++bits) {
    for (unsigned left = counts_[bits]; left != 0; --left) {
      table[code_] = WithCodeBits(results_[*next_++], bits);
      code_ = NextReversedCode(code_, bits);
    }
    if (bits == rootBits_) return;
    std::copy_n(table, std::size_t{1} << bits, table + (std::size_t{1} << bits));
  }
}

// Codes longer than the root index. They come sorted, so all codes behind one root slot come in a row, and a
// sub-table is begun where the slot changes. The pool of a block is large enough for any set that SortSymbols
// lets through, as its size was derived from that; the check is for smaller pools, and for the day when
// somebody changes one of the numbers.
constexpr CsResult TableBuilder::FillSubTables() {
  const std::uint32_t rootMask = (1U << rootBits_) - 1;
  std::uint32_t slot = ~0U;
  std::size_t used = std::size_t{1} << rootBits_;
  for (unsigned bits = rootBits_ + 1; bits <= maxBits_; ++bits) {
    for (; counts_[bits] != 0; --counts_[bits]) {
      if ((code_ & rootMask) != slot) {
        slot = code_ & rootMask;
        subBits_ = SubTableBits(counts_, rootBits_, bits, maxBits_);
        subStart_ = static_cast<std::uint32_t>(used);
        used += std::size_t{1} << subBits_;
        if (used > pool_.size()) return CS_E_TABLE_POOL;
        pool_[slot] = kLink | WithValue(subStart_) | subBits_ << 8 | rootBits_;
      }
      Put(results_[*next_++], bits);
      code_ = NextReversedCode(code_, bits);
    }
  }
  return CS_OK;
}

// An incomplete set leaves the codes from `code_` on unused. They are covered from there to the end by the
// largest aligned pieces, each of which is one bit pattern that no code begins with.
//
// After a single code 00 the next one is 01, and the patterns without a code are 01 and 1: a piece of 2 bits,
// and behind it one of 1. Reversed, the highest bit set in the next code tells the size of the piece, and
// counting on from it as if it were a code leads to the piece behind it, until the count runs over.
constexpr void TableBuilder::FillUnassigned() {
  while (code_ != 0) {
    const auto bits = static_cast<unsigned>(std::bit_width(code_));
    Put(kInvalid, bits);
    code_ = NextReversedCode(code_, bits);
  }
}

// Writes the entry of `code_` to every slot whose low bits are the code; `subStart_` and `subBits_` are those
// of the root slot when the code is longer than the root index.
constexpr void TableBuilder::Put(Entry result, unsigned bits) {
  Entry* table = pool_.data();
  std::uint32_t at = code_;
  std::uint32_t size = 1U << rootBits_;
  if (bits > rootBits_) {
    table += subStart_;
    at >>= rootBits_;
    size = 1U << subBits_;
    bits -= rootBits_;
  }
  const Entry entry = WithCodeBits(result, bits);
  for (; at < size; at += 1U << bits) table[at] = entry;
}

}  // namespace

CsResult BuildDecodeTable(std::span<const std::uint8_t> lengths, const Entry* results, unsigned maxRootBits,
                          std::span<Entry> pool, DecodeTable& table) {
  TableBuilder builder(results, pool);
  const CsResult result = builder.Build(lengths, maxRootBits);
  table = {pool.data(), builder.RootBits()};
  return result;
}

namespace {

// No fixed code is longer than its table's index, so there are no sub-tables.
constexpr unsigned kFixedLitLenBits = 9, kFixedDistBits = 5;

constexpr auto kFixedLitLenPool = [] {
  std::array<Entry, 1U << kFixedLitLenBits> pool{};
  TableBuilder builder(kLitLenResults.data(), pool);
  if (builder.Build(kFixedTrees.litLenLength, kLitLenRootBits) != CS_OK) throw "no table";
  if (builder.RootBits() != kFixedLitLenBits) throw "another size";
  return pool;
}();

constexpr auto kFixedDistPool = [] {
  std::array<Entry, 1U << kFixedDistBits> pool{};
  TableBuilder builder(kDistResults.data(), pool);
  if (builder.Build(kFixedTrees.distLength, kDistRootBits) != CS_OK) throw "no table";
  if (builder.RootBits() != kFixedDistBits) throw "another size";
  return pool;
}();

}  // namespace

constexpr DecodeTable kFixedLitLenTable = {kFixedLitLenPool.data(), kFixedLitLenBits};
constexpr DecodeTable kFixedDistTable = {kFixedDistPool.data(), kFixedDistBits};

}  // namespace tolven::lzh

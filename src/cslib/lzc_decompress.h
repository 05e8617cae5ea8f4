#pragma once

// The LZC decompressor: codes back to strings.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/bytes.h"
#include "cslib/cslib.h"
#include "cslib/lzc_format.h"

namespace tolven {

namespace lzc {

// Strings grow by one byte a code, so none is longer than this.
inline constexpr std::size_t kMaxString = kReadMaxCodes;

// A string of the dictionary, as its last 1 to 8 bytes and the code of the string before them (which is a
// multiple of 8 long). So most strings are one store of 8 bytes, and long ones go backwards in steps of 8,
// where the classic chain of single bytes takes a step, and a dependent load, for each of them.
// First byte lowest.
struct String {
  std::uint64_t tail;
  std::uint16_t parent;
  std::uint16_t length;
  std::uint8_t first;
};
static_assert(sizeof(String) == 16);
static_assert(kMaxString <= 0xFFFF);

}  // namespace lzc

// The dictionary is strings[0 .. freeEnt), without 256 in block mode. Strings from freeEnt on are left over
// from an earlier stream or from before CLEAR, or were never written: a code says nothing about them.
//
// A call may end anywhere. What is kept then are bits that do not make a code yet, bits of a group that still
// have to be passed over, and the rest of a string that did not fit; whole codes are never kept.
struct LzcDecompressState {
  CsResult failure = CS_E_NO_STAGING;  // why no call can go on; CS_OK while there is a stream

  std::array<lzc::String, lzc::kReadMaxCodes> strings;
  std::uint64_t bits;  // taken from the input and not used; between calls less than a code
  unsigned bitCount;
  unsigned skip;  // bits of a group that was left before its end, still to be passed over
  int width;
  int maxBits;
  bool blockMode;
  std::uint32_t freeEnt;
  std::uint32_t maxCode;
  std::uint32_t maxMaxCode;
  int oldCode;              // negative: the next code must be a literal
  std::uint32_t codesLeft;  // of the current group
  std::int32_t total;
  std::int32_t produced;
  // A string that did not fit the caller's room, with as much behind it as a store may go too far.
  std::array<std::uint8_t, lzc::kMaxString + sizeof(std::uint64_t)> pending;
  std::size_t pendingAt;
  std::size_t pendingEnd;
};

// A new stream behind its header, whose length and parameter these are. The parameter was checked: 9 to 14
// bits.
void StartDecomprLZC(LzcDecompressState& state, std::int32_t total, std::uint8_t parameter);

// One call of it. CS_END_OF_STREAM, CS_END_OUTBUFFER, CS_END_INBUFFER, or CS_E_BAD_CODE, now and for every
// later call. CS_E_NO_STAGING before any start. A call that has something to deliver must bring room for it:
// without any it is CS_E_OUT_BUFFER_LEN, or CS_E_NO_OUT_BUFFER when there is no buffer at all.
CsResult CsRDecomprLZC(LzcDecompressState& state, CsInput& in, CsOutput& out);

}  // namespace tolven

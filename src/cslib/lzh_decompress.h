#pragma once

// The LZH decompressor: what a stream keeps between two calls, and the cursor that both of its paths work on.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/bytes.h"
#include "cslib/cslib.h"
#include "cslib/lzh_decode_table.h"
#include "cslib/lzh_format.h"

namespace tolven {

struct LzhDecompressState;

namespace lzh {

// Input and output of one call, and the bits between them: read from the input, not yet decoded, the first
// one lowest. Above `bitCount` there are either zeros or the bits that follow in the input anyway; so bytes
// may be loaded by the word and counted as far as they fit, and loading them again does no harm.
struct BitCursor {
  CsInput in;
  CsOutput out;
  std::uint64_t bits;
  unsigned bitCount;
};

enum class FastExit {
  kEdge,       // near an edge of input or output, or at a code that only the careful path may judge
  kBlockDone,  // the end-of-block code has been taken
  kDistance,   // state.length is known, the distance code is next and reaches too far or does not exist
};

// The fast loop exists once for every machine and once for those with BMI2; both give the same.
using FastDecoder = FastExit (*)(LzhDecompressState& state, BitCursor& cursor, std::size_t room);

FastDecoder FastestDecoder();

}  // namespace lzh

// How much of the stream a call may have read ahead is seen in `bits`: whole bytes are not given back, as
// they might belong to an earlier call. They are kept instead, up to 63 bits.
//
// What is read next. Every item below takes at most 28 bits and is taken from the bit buffer as a whole or
// not at all, so when input ends inside an item its first bits simply wait in the buffer. That is all it
// takes to stop at any bit: no item has a state of its own.
enum class LzhPhase {
  kPreambleCount,
  kPreambleBits,
  kBlockHeader,
  kDynamicCounts,
  kBitLengthLengths,
  kCodeLengths,
  kSymbols,   // literal, end of block, or a length with its extra bits
  kDistance,  // `length` is known
  kCopy,      // `length` and `distance` are known; `length` counts down as room allows
  kEnd,       // all declared bytes are out
  kShortEnd,  // the last block ended before that
  kFailed,    // `failure` says why; nothing more can be read
};

struct LzhDecompressState {
  LzhDecompressState() = default;
  LzhDecompressState(const LzhDecompressState&) = delete;  // its tables lie over its own pools
  LzhDecompressState& operator=(const LzhDecompressState&) = delete;

  LzhPhase phase = LzhPhase::kFailed;
  CsResult failure = CS_E_NO_STAGING;  // no stream was started yet

  lzh::FastDecoder decodeFast = lzh::FastestDecoder();  // tests put the portable one here

  std::uint32_t declared = 0;  // uncompressed length, from the stream header
  std::uint32_t total = 0;     // bytes delivered by earlier calls; never above `declared`

  std::uint64_t bits = 0;  // input read but not decoded, first bit lowest; nothing above `bitCount`
  unsigned bitCount = 0;   // 0..63

  unsigned preambleBits = 0;
  bool lastBlock = false;
  unsigned litLenCodes = 0, distCodes = 0, bitLengthCodes = 0, lengthsRead = 0;
  std::uint32_t length = 0, distance = 0;

  // Of the current block: over the pools below, or the shared ones of a fixed block.
  lzh::DecodeTable litLen, dist, bitLength;
  std::array<std::uint8_t, lzh::kBitLengthCodes> bitLengthLengths;
  std::array<std::uint8_t, lzh::kLitLenCodes + lzh::kDistCodes> codeLengths;
  std::array<lzh::Entry, lzh::kLitLenPool> litLenPool;
  std::array<lzh::Entry, lzh::kDistPool> distPool;
  std::array<lzh::Entry, lzh::kBitLengthPool> bitLengthPool;

  // The last 16 KiB delivered by earlier calls: the byte at stream position p stands at p % kWindowSize. What
  // the current call has produced is looked up in the caller's buffer instead, so a stream that comes out in
  // one call never passes through here.
  std::array<std::uint8_t, lzh::kWindowSize> window;
};

// A new stream behind its header, which declares `length` bytes.
void StartDecomprLZH(LzhDecompressState& state, std::int32_t length);

// One call of it: CS_END_OF_STREAM (all of the input counts as read then), CS_END_OUTBUFFER, CS_END_INBUFFER,
// CS_OK when the last block ended short of the declared length, or a code for what is wrong with the stream,
// now and for every later call. CS_E_NO_STAGING before any start.
CsResult CsRDecomprLZH(LzhDecompressState& state, CsInput& in, CsOutput& out);

namespace lzh {

// Copies a match of `length` bytes that begins `distance` bytes back, byte-exact, advancing the output. The
// caller has checked both against the room and against what the stream has produced.
void CopyMatch(const LzhDecompressState& state, BitCursor& cursor, std::uint32_t length,
               std::uint32_t distance);

}  // namespace lzh
}  // namespace tolven

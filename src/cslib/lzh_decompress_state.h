#pragma once

// What an LZH stream keeps between two calls of the decompressor, and the cursor both of its paths work on.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "cslib/cslib.h"
#include "cslib/lzh_decode_table.h"
#include "cslib/lzh_decompress.h"
#include "cslib/lzh_format.h"

namespace tolven {

// What is read next. Every item below takes at most 28 bits and is taken from the bit buffer as a whole or
// not at all, so when input ends inside an item its first bits simply wait in the buffer.
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

struct LzhDecompressState;

namespace lzh {

// The input and output of one call.
struct Cursor {
  const std::uint8_t* in;
  const std::uint8_t* inEnd;
  std::uint8_t* out;
  std::uint8_t* outBegin;
  std::uint8_t* outEnd;
  std::uint64_t bits;  // above `bitCount` either zeros or the bits that follow in the input
  unsigned bitCount;

  [[nodiscard]] std::size_t InLeft() const { return static_cast<std::size_t>(inEnd - in); }
  [[nodiscard]] std::size_t Room() const { return static_cast<std::size_t>(outEnd - out); }
  [[nodiscard]] std::size_t Produced() const { return static_cast<std::size_t>(out - outBegin); }
};

enum class FastExit {
  kEdge,       // near an edge of input or output, or at a code that only the careful path may judge
  kBlockDone,  // the end-of-block code has been taken
  kDistance,   // state.length is known, the distance code is next and reaches too far or does not exist
};

// The fast loop exists once for every machine and once for those with BMI2; both give the same.
using FastDecoder = FastExit (*)(LzhDecompressState& state, Cursor& cursor, std::size_t room);

FastDecoder FastestDecoder();

}  // namespace lzh

struct LzhDecompressState {
  lzh::FastDecoder decodeFast = lzh::FastestDecoder();  // tests put the portable one here
  LzhPhase phase = LzhPhase::kFailed;
  int failure = CS_E_NO_STAGING;  // no stream was started yet

  std::uint32_t declared = 0;  // uncompressed length, from the stream header
  std::uint32_t total = 0;     // bytes delivered by earlier calls; never above `declared`

  std::uint64_t bits = 0;  // input read but not decoded, first bit lowest; nothing above `bitCount`
  unsigned bitCount = 0;   // 0..63

  unsigned preambleBits = 0;
  bool lastBlock = false;
  unsigned litLenCodes = 0, distCodes = 0, bitLengthCodes = 0, lengthsRead = 0;
  std::uint32_t length = 0, distance = 0;

  lzh::DecodeTable litLen{}, dist{};  // of the current block
  unsigned bitLengthRootBits = 0;
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

namespace lzh {

// Eight bytes, the first one lowest.
inline std::uint64_t LoadLittleEndian64(const std::uint8_t* bytes) {
  std::uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

// Copies a match of `length` bytes that begins `distance` bytes back, byte-exact, advancing `out`. The caller
// has checked both against the room and against what the stream has produced.
void CopyMatch(const LzhDecompressState& state, Cursor& cursor, std::uint32_t length, std::uint32_t distance);

}  // namespace lzh
}  // namespace tolven

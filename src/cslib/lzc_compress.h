#pragma once

// The LZC compressor: strings of the input to codes, each code as long as the dictionary is large.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/bytes.h"
#include "cslib/cslib.h"
#include "cslib/lzc_dictionary.h"
#include "cslib/lzc_packer.h"

namespace tolven {

namespace lzc {

// What one input byte can bring at most: a code and a filled up group, twice when the second code is CLEAR. A
// code is up to 13 bits, with the bits that waited in the packer at most 2 whole bytes and something that
// goes on waiting; the rest of a group is at most its n bytes, for the widest code 13.
inline constexpr std::size_t kStepBytes = 2 * (2 + static_cast<std::size_t>(kWriteMaxBits));
// So much room behind a step lets it write without looking.
inline constexpr std::size_t kOutMargin = kStepBytes + CodePacker::kSlack;

}  // namespace lzc

// Everything but the pending bytes is also what decides on the code stream, so none of it may depend on how
// the caller cuts his buffers: bytesIn counts bytes looked at, and the bytes out are those of the packer's
// groups.
struct LzcCompressState {
  CsResult failure = CS_E_NO_STAGING;  // why no call can go on; CS_OK while there is a stream

  lzc::Dictionary dictionary;
  lzc::CodePacker packer;
  std::uint32_t maxCode;
  std::int32_t prefix;  // the code of what was read and not yet packed; -1 before the first byte
  std::int32_t total;
  std::int64_t bytesIn;
  std::int64_t checkpoint;
  std::int64_t ratio;
  bool ended;  // the last code is packed
  // Bytes that did not fit the caller's room; the coder does not run on while there are any.
  std::array<std::uint8_t, lzc::kOutMargin + 1> pending;
  std::size_t pendingAt;
  std::size_t pendingEnd;
};

// A new stream of `total` bytes, at least one, behind a stream header that is written.
void StartComprLZC(LzcCompressState& state, std::int32_t total);

// One call of it. CS_END_OF_STREAM, CS_END_OUTBUFFER, CS_END_INBUFFER; CS_E_NO_STAGING before any start;
// CS_E_NO_OUT_BUFFER for an output of no buffer at all. Input beyond the declared length is left alone.
CsResult CsRComprLZC(LzcCompressState& state, CsInput& in, CsOutput& out);

}  // namespace tolven

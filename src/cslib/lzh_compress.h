#pragma once

// The LZH compressor: runs a stream through matcher, trees and output.

#include <cstddef>
#include <cstdint>

#include "cslib/bytes.h"
#include "cslib/cslib.h"
#include "cslib/lzh_matcher.h"
#include "cslib/lzh_output.h"
#include "cslib/lzh_trees.h"

namespace tolven {

// Everything a stream keeps between calls; about 350 KiB, no allocation per call. It points into itself (the
// trees do), so it stays where it was made.
struct LzhCompressState {
  CsResult failure = CS_E_NO_STAGING;  // why no call can go on; CS_OK while there is a stream
  bool finalFlushed = false;           // the last block is out, or pending
  std::size_t missing = 0;             // declared bytes not taken in yet
  lzh::LzhMatcher matcher;
  lzh::LzhTrees trees;
  lzh::LzhOutput output;
};

// A new stream of `length` bytes behind a stream header that is written. `level`: 1..9. The
// stream follows from the two and from its bytes: nothing of the machine, the clock or an earlier stream.
void StartComprLZH(LzhCompressState& state, std::int32_t length, int level);

// One call of it: CS_END_OF_STREAM, CS_END_OUTBUFFER, CS_END_INBUFFER, or CS_E_NO_STAGING before any start.
// Input beyond the declared length is left alone.
CsResult CsRComprLZH(LzhCompressState& state, CsInput& in, CsOutput& out);

}  // namespace tolven

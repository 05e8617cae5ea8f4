#pragma once

#include "cslib/lzh_decompress_state.h"

namespace tolven::lzh {

enum class FastExit {
  kEdge,       // near an edge of input or output, or at a code that only the careful path may judge
  kBlockDone,  // the end-of-block code has been taken
  kDistance,   // state.length is known, the distance code is next and reaches too far or does not exist
};

// True iff there is enough input and room for one round of DecodeFast. `room` is what both the caller's
// buffer and the declared length leave.
bool WorthDecodingFast(const Cursor& cursor, std::size_t room);

// Decodes symbols of the current block until an edge is near. Reads and writes through `cursor`; `room` as
// above.
FastExit DecodeFast(LzhDecompressState& state, Cursor& cursor, std::size_t room);

}  // namespace tolven::lzh

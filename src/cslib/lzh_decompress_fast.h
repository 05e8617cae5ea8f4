#pragma once

#include "cslib/lzh_decompress_state.h"

namespace tolven::lzh {

// True iff there is enough input and room for one round of a fast decoder. `room` is what both the caller's
// buffer and the declared length leave.
bool WorthDecodingFast(const Cursor& cursor, std::size_t room);

// Decodes symbols of the current block until an edge is near. Reads and writes through `cursor`; `room` as
// above.
FastExit DecodePortable(LzhDecompressState& state, Cursor& cursor, std::size_t room);

}  // namespace tolven::lzh

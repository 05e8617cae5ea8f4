#pragma once

// The inner loop of the decompressor, in its two builds. FastestDecoder (lzh_decompress.h) chooses one.

#include <cstddef>

#include "cslib/lzh_decompress.h"

namespace tolven::lzh {

// True iff there is enough input and room for one round of a fast decoder. `room` is what both the caller's
// buffer and the declared length leave.
bool WorthDecodingFast(const BitCursor& cursor, std::size_t room);

// Decodes symbols of the current block until an edge is near. Reads and writes through `cursor`; `room` as
// above. For every machine; tests hold it against what FastestDecoder gives.
FastExit DecodePortable(LzhDecompressState& state, BitCursor& cursor, std::size_t room);

}  // namespace tolven::lzh

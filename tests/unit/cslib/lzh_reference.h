#pragma once

// A second LZH compressor, slow and plain: one byte or one bit at a time, one array for each thing the
// format's description names, nothing shared with the real one. The two must agree bit for bit.

#include <cstddef>
#include <vector>

#include "cslib/data.h"

namespace tolven::test {

struct ReferenceBlock {
  std::size_t items;
  std::size_t matches;
  bool dynamic;
};

struct ReferenceStream {
  Bytes bytes;  // with the header, and two zero bits as preamble
  std::vector<ReferenceBlock> blocks;
  int slides = 0;
  int shortened_literal_trees = 0;  // codes above 15 bits had to be repaired
};

// All of `data` in one piece, with output room without end. `level`: 1..9.
ReferenceStream ReferenceCompress(const Bytes& data, int level);

}  // namespace tolven::test

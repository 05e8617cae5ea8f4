#pragma once

// Checksum framing: the coded bytes behind the 8-byte stream header cut into segments, so that damage is
// found where it is, and a trailer over the uncompressed bytes.
//
//   stream header | segment | segment ... | trailer
//
// segment:  0  4  length of its data, little-endian
//           4  4  CRC-32 register over all coded bytes up to the end of this segment (running, not inverted)
//           8     data
// trailer:  0  4  0
//           4  4  CRC-32 register over all uncompressed bytes (not inverted)
//
// A reader never looks at the first four bytes of the trailer: it knows from its coder that the stream is at
// its end. This writer puts 0 there, a segment without data.
//
// Archives have checksums of their own and are written without framing. It stands between the gate and the
// coders: each side believes to talk to the other, through cursors that cover one segment.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/cslib.h"

namespace tolven {

struct CsCall;
struct CsContext;

inline constexpr std::size_t kSegmentHeadSize = 8;
inline constexpr std::size_t kTrailerSize = 8;
// At most, in what this writer makes; a reader takes any length.
inline constexpr std::size_t kSegmentData = 1024;

// The length and checksum of a segment stand in front of it and are known only behind it. So a segment is
// staged here as a whole, but where the caller's room takes all of it: then it is coded in place, behind a
// gap of 8 bytes, and nothing is copied.
struct SegmentWriter {
  std::array<std::uint8_t, kSegmentHeadSize + kSegmentData> staging;
  std::size_t fill = 0;      // coded bytes behind the gap for the segment header, in no finished segment yet
  std::size_t drained = 0;   // of the finished bytes: already with the caller
  std::size_t finished = 0;  // bytes at the front of `staging` that wait for the caller's room
  bool coderDone = false;
  bool trailerMade = false;
};

struct SegmentReader {
  enum class State : std::uint8_t {
    kHead,      // gathering the 8 bytes in front of a segment
    kData,      // the coder is at work on the segment
    kRest,      // the coder is done, the segment is not
    kTrailer,   // gathering the 8 bytes behind the last segment
    kShortEnd,  // the last block ended before the declared length: nothing more can come
  };

  std::array<std::uint8_t, kSegmentHeadSize> staging;  // segment header or trailer, gathered across calls
  std::size_t fill = 0;
  State state = State::kHead;
  // These three come from the stream and may be anything up to 2^32 - 1.
  std::uint32_t left = 0;     // data of the current segment that the coder has not consumed
  std::uint32_t checked = 0;  // of these, the ones already in the checksum
  std::uint32_t crc = 0;      // what the register must be at the end of the current segment
  bool coderHolds = false;    // the coder has output that did not fit
};

// Sets up framing for a start call whose stream header is in `context`; false when memory is exhausted.
[[nodiscard]] bool StartSegmentWriter(CsContext& context);
[[nodiscard]] bool StartSegmentReader(CsContext& context);

// One call of a framed stream, behind its stream header; the coder is started.
CsResult CompressSegments(CsContext& context, CsCall& call);
CsResult DecompressSegments(CsContext& context, CsCall& call);

}  // namespace tolven

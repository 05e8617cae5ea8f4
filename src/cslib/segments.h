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

#include <array>
#include <cstdint>

namespace tolven {

struct CsCall;
struct CsContext;

inline constexpr std::int32_t kSegmentHeadSize = 8;
inline constexpr std::int32_t kSegmentData =
    1024;  // at most, in what this writer makes; a reader takes any length
inline constexpr std::int32_t kTrailerSize = 8;

struct SegmentWriter {
  std::array<std::uint8_t, kSegmentHeadSize + kSegmentData> staging;
  std::int32_t fill = 0;      // coded bytes behind the gap for the segment header, in no finished segment yet
  std::int32_t drained = 0;   // of the finished bytes: already with the caller
  std::int32_t finished = 0;  // bytes at the front of `staging` that wait for the caller's room
  bool coderDone = false;
  bool trailerMade = false;
};

struct SegmentReader {
  enum class State : std::uint8_t {
    kHead,
    kData,
    kRest,
    kTrailer,
    kShortEnd,  // the last block ended before the declared length: nothing more can come
  };

  std::array<std::uint8_t, kSegmentHeadSize> staging;  // segment header or trailer, gathered across calls
  std::int32_t fill = 0;
  State state = State::kHead;
  std::uint32_t left = 0;     // data of the current segment that the coder has not consumed
  std::uint32_t checked = 0;  // of these, the ones already in the checksum
  std::uint32_t crc = 0;      // what the register must be at the end of the current segment
  bool coderHolds = false;    // the coder has output that did not fit
};

// Sets up framing for a start call; false when memory is exhausted.
bool StartSegmentWriter(CsContext& context);
bool StartSegmentReader(CsContext& context);

// CsRCompress and CsRDecompress of a framed stream, arguments checked and coder provided.
int CompressSegments(CsContext& context, CsCall& call);
int DecompressSegments(CsContext& context, CsCall& call);

}  // namespace tolven

#include "cslib/segments.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "cslib/context.h"
#include "cslib/trace.h"

namespace tolven {
namespace {

// The decoder says "end of stream" as soon as the last byte is out, which it may know before it has seen the
// zero byte that closes an LZH stream. That byte must not start a segment of its own: two bytes of every full
// segment move on into the next one, so that the last segment always holds at least two.
//
// The reader goes on to the trailer when the coder is done and its segment is passed. If the zero byte alone
// were the last segment, the coder would be done in the one before, and the reader would take the header of
// the last segment for the trailer. Two bytes are enough: the one in front of the zero byte holds at least
// one bit of the last code, so the decoder cannot be done without it.
constexpr std::size_t kCarry = 2;

void Feed(Crc32Handle* crc, std::span<const std::uint8_t> bytes) {
  CRC32HBuffer(crc, bytes.data(), static_cast<std::uint32_t>(bytes.size()), false);
}

bool NewChecksums(CsContext& context, std::int32_t segmentLength) {
  context.dataCrc = CRC32NewHandle(0);
  context.streamCrc = CRC32NewHandle(segmentLength);
  return context.dataCrc && context.streamCrc;
}

// --- Writing
//
// The coder is called with room for the rest of a segment, however little that is, and says "output full"
// when it is used up: a segment is full exactly when the coder has filled it. So all segments but the last
// have the same length, whatever pieces the caller's buffers come in, unless his room is between 1024 and
// 1031 bytes.
//
// What is staged: [header gap | coded bytes]. A finished segment stands at the front, its header filled in,
// and waits to be drained; coded bytes behind it already belong to the next one.

// True when nothing finished waits any longer.
bool Drain(SegmentWriter& writer, CsOutput& out) {
  const std::size_t count = std::min(writer.finished - writer.drained, out.Room());
  if (count > 0) {
    std::memcpy(out.at, writer.staging.data() + writer.drained, count);
    out.at += count;
    writer.drained += count;
  }
  if (writer.drained < writer.finished) return false;
  if (writer.finished > 0) {
    // What did not belong to the finished segment becomes the start of the next.
    std::memmove(writer.staging.data() + kSegmentHeadSize, writer.staging.data() + writer.finished,
                 writer.fill);
    writer.drained = writer.finished = 0;
  }
  return true;
}

// Puts the header in front of the first `length` coded bytes at `segment`; the size of the whole.
std::size_t FinishSegment(CsContext& context, std::uint8_t* segment, std::size_t length) {
  Feed(context.streamCrc.get(), {segment + kSegmentHeadSize, length});
  StoreLittle32(segment, static_cast<std::uint32_t>(length));
  StoreLittle32(segment + 4, context.streamCrc->crcRegister);
  context.segmentWriter->fill -= length;
  return kSegmentHeadSize + length;
}

// One call of the coder behind the bytes already in `segment`, which has room for `capacity` of them.
CsResult RunIntoSegment(CsContext& context, CsInput& in, std::uint8_t* segment, std::size_t capacity) {
  SegmentWriter& writer = *context.segmentWriter;
  CsInput coderIn(in.Rest());
  CsOutput coderOut({segment + kSegmentHeadSize + writer.fill, capacity - writer.fill});
  const CsResult result = RunCompressor(context, coderIn, coderOut);
  if (result < 0) return result;
  Feed(context.dataCrc.get(), {coderIn.begin, coderIn.Taken()});
  in.at = coderIn.at;
  writer.fill += coderOut.Produced();
  writer.coderDone = result == CS_END_OF_STREAM;
  return result;
}

// Codes up to one segment. A caller with much room gets it written in place, others through the staging
// buffer.
CsResult EncodeSegment(CsContext& context, CsCall& call) {
  SegmentWriter& writer = *context.segmentWriter;
  const std::size_t room = call.out.Room();
  std::uint8_t* segment = writer.staging.data();
  std::size_t capacity = kSegmentData;
  // In less room than this the segments would come out shorter. With exactly 1024 bytes they still do, by the
  // size of the header, so the staged bytes may already be too many.
  const bool inPlace = room >= kSegmentData && writer.fill < std::min(kSegmentData, room - kSegmentHeadSize);
  if (inPlace) {
    capacity = std::min(kSegmentData, room - kSegmentHeadSize);
    segment = call.out.at;
    std::memcpy(segment + kSegmentHeadSize, writer.staging.data() + kSegmentHeadSize, writer.fill);
  } else if ((CsTraceLevel() & kTraceLines) != 0) {
    CsTPrintf("    using temporary buffer...\n");
  }
  const CsResult result = RunIntoSegment(context, call.in, segment, capacity);
  if (result < 0) return result;

  std::size_t size = 0;
  if (writer.coderDone) {
    if (writer.fill > 0) size = FinishSegment(context, segment, writer.fill);
  } else if (writer.fill == capacity) {
    size = FinishSegment(context, segment, capacity - kCarry);
  }
  if (inPlace) {
    // What belongs to no segment yet must not stay in the caller's buffer, which is his again after the call.
    call.out.at += size;
    const std::uint8_t* rest = size > 0 ? segment + size : segment + kSegmentHeadSize;
    std::memcpy(writer.staging.data() + kSegmentHeadSize, rest, writer.fill);
  } else {
    writer.finished = size;
  }
  return result;
}

void MakeTrailer(CsContext& context) {
  SegmentWriter& writer = *context.segmentWriter;
  StoreLittle32(writer.staging.data(), 0);
  StoreLittle32(writer.staging.data() + 4, context.dataCrc->crcRegister);
  writer.finished = kTrailerSize;
  writer.trailerMade = true;
}

// --- Reading
//
// Nothing in the framing is trusted. A segment may claim any length; it is never gathered, only counted down,
// so the claim costs nothing. The coder never sees more of it than lies in the caller's input, and never
// bytes of the next one, so it cannot run over a checksum.
//
// kHead -> kData -> kHead ... -> kData -> kRest -> kTrailer, or from kData to kShortEnd. The coder is shown
// the data of one segment at a time, and nothing of a segment whose checksum is known to be wrong.

// True when the staging buffer holds its 8 bytes.
bool Gather(SegmentReader& reader, CsInput& in) {
  const std::size_t count = std::min(kSegmentHeadSize - reader.fill, in.Left());
  if (count > 0) {
    std::memcpy(reader.staging.data() + reader.fill, in.at, count);
    reader.fill += count;
    in.at += count;
  }
  return reader.fill == kSegmentHeadSize;
}

CsResult SegmentDamaged(std::uint32_t crc) {
  CsTPrintf("ERROR: CsRDecompress: CRC check failed: segment CRC = %8x\n", crc);
  return CS_E_CHECKSUM;
}

// Takes the next `available` bytes of the segment into the checksum before the coder sees them, so that
// damage in a segment that lies there whole is reported as such and not as whatever the coder makes of it.
// Bytes the coder left behind come a second time and are skipped.
CsResult CheckAhead(CsContext& context, const CsInput& in, std::uint32_t available) {
  SegmentReader& reader = *context.segmentReader;
  if (available <= reader.checked) return CS_OK;
  CRC32HBuffer(context.streamCrc.get(), in.at + reader.checked, available - reader.checked, true);
  reader.checked = available;
  const bool complete = reader.checked == reader.left;
  if (complete && context.streamCrc->crcRegister != reader.crc) return SegmentDamaged(reader.crc);
  return CS_OK;
}

std::uint32_t AvailableInSegment(const SegmentReader& reader, const CsInput& in) {
  return static_cast<std::uint32_t>(std::min<std::size_t>(reader.left, in.Left()));
}

void Consume(SegmentReader& reader, CsInput& in, std::uint32_t count) {
  reader.left -= count;
  reader.checked -= count;
  in.at += count;
}

// The 8 bytes in front of a segment are complete.
CsResult OpenSegment(CsContext& context) {
  SegmentReader& reader = *context.segmentReader;
  reader.fill = 0;
  reader.left = LoadLittle32(reader.staging.data());
  reader.crc = LoadLittle32(reader.staging.data() + 4);
  reader.checked = 0;
  // A segment without data can be checked at once, and there is nothing in it to wait for.
  if (reader.left == 0) {
    return context.streamCrc->crcRegister == reader.crc ? CS_OK : SegmentDamaged(reader.crc);
  }
  context.streamCrc->segmentLength = reader.left;
  context.streamCrc->position = 0;
  reader.state = SegmentReader::State::kData;
  return CS_OK;
}

// One call of the coder on what there is of the current segment. With the whole of it at hand the checksum
// has been compared by now; with a part of it the coder runs ahead of that, and output may be delivered which
// the checksum will condemn. The caller learns of it before the end of the stream, as with any error. What a
// coder that fails had read and written by then does not count: it is not known which of it was damaged.
CsResult DecodeSegment(CsContext& context, CsCall& call) {
  SegmentReader& reader = *context.segmentReader;
  const std::uint32_t available = AvailableInSegment(reader, call.in);
  if (const CsResult failed = CheckAhead(context, call.in, available); failed != CS_OK) return failed;
  CsInput coderIn(call.in.Rest().first(available));
  CsOutput coderOut(call.out.Rest());
  const CsResult result = RunDecompressor(context, coderIn, coderOut);
  if (result < 0) return result;
  Feed(context.dataCrc.get(), {coderOut.begin, coderOut.Produced()});
  call.out.at = coderOut.at;
  Consume(reader, call.in, static_cast<std::uint32_t>(coderIn.Taken()));
  reader.coderHolds = result == CS_END_OUTBUFFER;
  if (result == CS_END_OF_STREAM) reader.state = SegmentReader::State::kRest;
  if (result == CS_OK) reader.state = SegmentReader::State::kShortEnd;
  return result;
}

// The coder is done but bytes of its segment are left: they still count in the segment's checksum. CS_OK when
// the segment is passed.
CsResult SkipRest(CsContext& context, CsInput& in) {
  SegmentReader& reader = *context.segmentReader;
  const std::uint32_t available = AvailableInSegment(reader, in);
  if (const CsResult failed = CheckAhead(context, in, available); failed != CS_OK) return failed;
  Consume(reader, in, available);
  if (reader.left > 0) return CS_END_INBUFFER;
  reader.state = SegmentReader::State::kTrailer;
  return CS_OK;
}

CsResult CheckTrailer(const CsContext& context) {
  const std::uint32_t crc = LoadLittle32(context.segmentReader->staging.data() + 4);
  if (context.dataCrc->crcRegister == crc) return CS_END_OF_STREAM;
  CsTPrintf("ERROR: CsRDecompress: CRC check for original data failed: data CRC = %8x\n", crc);
  return CS_E_CHECKSUM;
}

}  // namespace

bool StartSegmentWriter(CsContext& context) {
  try {
    context.segmentWriter = std::make_unique<SegmentWriter>();
  } catch (const std::bad_alloc&) {
    return false;
  }
  return NewChecksums(context, kSegmentData);
}

bool StartSegmentReader(CsContext& context) {
  try {
    context.segmentReader = std::make_unique<SegmentReader>();
  } catch (const std::bad_alloc&) {
    return false;
  }
  // An LZC stream of no bytes has no code, hence no segment: what follows its header is the trailer.
  const StreamHeader& header = context.header;
  if (header.algorithm == CS_ALGORITHM_LZC && header.length == 0) {
    context.segmentReader->state = SegmentReader::State::kTrailer;
  }
  return NewChecksums(context, 0);
}

// Drains what is finished and codes on, until the room is full, the input used up, or the trailer out. The
// coder's own "output full" means no more than that its segment is.
CsResult CompressSegments(CsContext& context, CsCall& call) {
  SegmentWriter& writer = *context.segmentWriter;
  bool starved = false;
  for (;;) {
    if (!Drain(writer, call.out)) return CS_END_OUTBUFFER;
    if (writer.trailerMade) return CS_END_OF_STREAM;
    if (writer.coderDone) {
      MakeTrailer(context);
    } else if (starved) {
      return CS_END_INBUFFER;
    } else {
      const CsResult result = EncodeSegment(context, call);
      if (result < 0) return result;
      starved = result == CS_END_INBUFFER;
    }
  }
}

CsResult DecompressSegments(CsContext& context, CsCall& call) {
  SegmentReader& reader = *context.segmentReader;
  for (;;) {
    switch (reader.state) {
      case SegmentReader::State::kHead:
        if (!Gather(reader, call.in)) return CS_END_INBUFFER;
        if (const CsResult failed = OpenSegment(context); failed != CS_OK) return failed;
        break;
      case SegmentReader::State::kData: {
        // A coder that still has output to deliver runs without new input.
        if (AvailableInSegment(reader, call.in) == 0 && !reader.coderHolds) return CS_END_INBUFFER;
        const CsResult result = DecodeSegment(context, call);
        if (result != CS_END_INBUFFER && result != CS_END_OF_STREAM) return result;
        if (result == CS_END_INBUFFER && reader.left == 0) reader.state = SegmentReader::State::kHead;
        break;
      }
      case SegmentReader::State::kRest:
        if (const CsResult result = SkipRest(context, call.in); result != CS_OK) return result;
        break;
      case SegmentReader::State::kTrailer:
        return Gather(reader, call.in) ? CheckTrailer(context) : CS_END_INBUFFER;
      case SegmentReader::State::kShortEnd:
        return CS_OK;
    }
  }
}

}  // namespace tolven

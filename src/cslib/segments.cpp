#include "cslib/segments.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "cslib/context.h"
#include "cslib/cslib.h"
#include "cslib/trace.h"

namespace tolven {
namespace {

// The decoder says "end of stream" as soon as the last byte is out, which it may know before it has seen the
// zero byte that closes an LZH stream. That byte must not start a segment of its own: two bytes of every full
// segment move on into the next one, so that the last segment always holds at least two.
constexpr std::int32_t kCarry = 2;

void Put32(std::uint8_t* to, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t Get32(const std::uint8_t* from) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | from[i];
  return value;
}

void Feed(Crc32Handle* crc, const std::uint8_t* bytes, std::int32_t count) {
  CRC32HBuffer(crc, bytes, static_cast<std::uint32_t>(count), false);
}

bool NewChecksums(CsContext& context, std::int32_t segmentLength) {
  context.dataCrc.reset(CRC32NewHandle(0));
  context.streamCrc.reset(CRC32NewHandle(segmentLength));
  return context.dataCrc && context.streamCrc;
}

// --- Writing

// True when nothing finished waits any longer.
bool Drain(SegmentWriter& writer, CsCall& call) {
  const std::int32_t count = std::min(writer.finished - writer.drained, call.outLen - call.written);
  if (count > 0) {
    std::memcpy(call.out + call.written, writer.staging.data() + writer.drained,
                static_cast<std::size_t>(count));
    call.written += count;
    writer.drained += count;
  }
  if (writer.drained < writer.finished) return false;
  if (writer.finished > 0) {
    // What did not belong to the finished segment becomes the start of the next.
    std::memmove(writer.staging.data() + kSegmentHeadSize, writer.staging.data() + writer.finished,
                 static_cast<std::size_t>(writer.fill));
    writer.drained = writer.finished = 0;
  }
  return true;
}

// Puts the header in front of the first `length` coded bytes at `segment`; the size of the whole.
std::int32_t FinishSegment(CsContext& context, std::uint8_t* segment, std::int32_t length) {
  Feed(context.streamCrc.get(), segment + kSegmentHeadSize, length);
  Put32(segment, static_cast<std::uint32_t>(length));
  Put32(segment + 4, context.streamCrc->crcRegister);
  context.segmentWriter->fill -= length;
  return kSegmentHeadSize + length;
}

// One call of the coder behind the bytes already in `segment`, which has room for `capacity` of them.
int RunIntoSegment(CsContext& context, CsCall& call, std::uint8_t* segment, std::int32_t capacity) {
  SegmentWriter& writer = *context.segmentWriter;
  CsCall inner;
  inner.total = call.total;
  inner.in = call.in == nullptr ? nullptr : call.in + call.read;
  inner.inLen = call.inLen - call.read;
  inner.out = segment + kSegmentHeadSize + writer.fill;
  inner.outLen = capacity - writer.fill;
  inner.options = call.options & ~CS_INIT;
  const int result = RunCompressor(context, inner);
  if (result < 0) return result;
  if (inner.read > 0) Feed(context.dataCrc.get(), inner.in, inner.read);
  call.read += inner.read;
  writer.fill += inner.written;
  writer.coderDone = result == CS_END_OF_STREAM;
  return result;
}

// Codes up to one segment. A caller with much room gets it written in place, others through the staging
// buffer.
int EncodeSegment(CsContext& context, CsCall& call) {
  SegmentWriter& writer = *context.segmentWriter;
  const std::int32_t room = call.outLen - call.written;
  std::int32_t capacity = std::min(kSegmentData, room - kSegmentHeadSize);
  const bool inPlace = room >= kSegmentData && writer.fill < capacity;
  std::uint8_t* segment = writer.staging.data();
  if (inPlace) {
    segment = call.out + call.written;
    std::memcpy(segment + kSegmentHeadSize, writer.staging.data() + kSegmentHeadSize,
                static_cast<std::size_t>(writer.fill));
  } else {
    if ((CsTraceLevel() & kTraceLines) != 0) CsTPrintf("    using temporary buffer...\n");
    capacity = kSegmentData;
  }
  const int result = RunIntoSegment(context, call, segment, capacity);
  if (result < 0) return result;

  std::int32_t size = 0;
  if (writer.coderDone) {
    if (writer.fill > 0) size = FinishSegment(context, segment, writer.fill);
  } else if (writer.fill == capacity) {
    size = FinishSegment(context, segment, capacity - kCarry);
  }
  if (inPlace) {
    call.written += size;
    const std::uint8_t* rest = size > 0 ? segment + size : segment + kSegmentHeadSize;
    std::memcpy(writer.staging.data() + kSegmentHeadSize, rest, static_cast<std::size_t>(writer.fill));
  } else {
    writer.finished = size;
  }
  return result;
}

void MakeTrailer(CsContext& context) {
  SegmentWriter& writer = *context.segmentWriter;
  Put32(writer.staging.data(), 0);
  Put32(writer.staging.data() + 4, context.dataCrc->crcRegister);
  writer.finished = kTrailerSize;
  writer.trailerMade = true;
}

// --- Reading

// True when the staging buffer holds its 8 bytes.
bool Gather(SegmentReader& reader, CsCall& call) {
  const std::int32_t count = std::min(kSegmentHeadSize - reader.fill, call.inLen - call.read);
  if (count > 0) {
    std::memcpy(reader.staging.data() + reader.fill, call.in + call.read, static_cast<std::size_t>(count));
    reader.fill += count;
    call.read += count;
  }
  return reader.fill == kSegmentHeadSize;
}

int SegmentDamaged(std::uint32_t crc) {
  CsTPrintf("ERROR: CsRDecompress: CRC check failed: segment CRC = %8x\n", crc);
  return CS_E_CHECKSUM;
}

// Takes the next `available` bytes of the segment into the checksum before the coder sees them, so that
// damage in a segment that lies there whole is reported as such and not as whatever the coder makes of it.
// Bytes the coder left behind come a second time and are skipped.
int CheckAhead(CsContext& context, const CsCall& call, std::uint32_t available) {
  SegmentReader& reader = *context.segmentReader;
  if (available <= reader.checked) return CS_OK;
  CRC32HBuffer(context.streamCrc.get(), call.in + call.read + reader.checked, available - reader.checked,
               true);
  reader.checked = available;
  const bool complete = reader.checked == reader.left;
  if (complete && context.streamCrc->crcRegister != reader.crc) return SegmentDamaged(reader.crc);
  return CS_OK;
}

std::uint32_t AvailableInSegment(const SegmentReader& reader, const CsCall& call) {
  return std::min(reader.left, static_cast<std::uint32_t>(call.inLen - call.read));
}

void Consume(SegmentReader& reader, CsCall& call, std::uint32_t count) {
  reader.left -= count;
  reader.checked -= count;
  call.read += static_cast<std::int32_t>(count);
}

// The 8 bytes in front of a segment are complete.
int OpenSegment(CsContext& context) {
  SegmentReader& reader = *context.segmentReader;
  reader.fill = 0;
  reader.left = Get32(reader.staging.data());
  reader.crc = Get32(reader.staging.data() + 4);
  reader.checked = 0;
  if (reader.left == 0) {
    return context.streamCrc->crcRegister == reader.crc ? CS_OK : SegmentDamaged(reader.crc);
  }
  context.streamCrc->segmentLength = reader.left;
  context.streamCrc->position = 0;
  reader.state = SegmentReader::State::kData;
  return CS_OK;
}

// One call of the coder on what there is of the current segment.
int DecodeSegment(CsContext& context, CsCall& call) {
  SegmentReader& reader = *context.segmentReader;
  const std::uint32_t available = AvailableInSegment(reader, call);
  if (const int failed = CheckAhead(context, call, available); failed != CS_OK) return failed;
  CsCall inner;
  inner.in = call.in == nullptr ? nullptr : call.in + call.read;
  inner.inLen = static_cast<std::int32_t>(available);
  inner.out = call.out == nullptr ? nullptr : call.out + call.written;
  inner.outLen = call.outLen - call.written;
  inner.options = call.options & ~CS_INIT;
  const int result = RunDecompressor(context, inner);
  if (result < 0) return result;
  if (inner.written > 0) Feed(context.dataCrc.get(), inner.out, inner.written);
  call.written += inner.written;
  Consume(reader, call, static_cast<std::uint32_t>(inner.read));
  reader.coderHolds = result == CS_END_OUTBUFFER;
  if (result == CS_END_OF_STREAM) reader.state = SegmentReader::State::kRest;
  if (result == CS_OK) reader.state = SegmentReader::State::kShortEnd;
  return result;
}

// The coder is done but bytes of its segment are left: they still count in the segment's checksum.
int SkipRest(CsContext& context, CsCall& call) {
  SegmentReader& reader = *context.segmentReader;
  const std::uint32_t available = AvailableInSegment(reader, call);
  if (const int failed = CheckAhead(context, call, available); failed != CS_OK) return failed;
  Consume(reader, call, available);
  if (reader.left > 0) return CS_END_INBUFFER;
  reader.state = SegmentReader::State::kTrailer;
  return CS_OK;
}

int CheckTrailer(CsContext& context) {
  const std::uint32_t crc = Get32(context.segmentReader->staging.data() + 4);
  if (context.dataCrc->crcRegister != crc) {
    CsTPrintf("ERROR: CsRDecompress: CRC check for original data failed: data CRC = %8x\n", crc);
    return CS_E_CHECKSUM;
  }
  return CS_END_OF_STREAM;
}

// Everything behind the stream header.
int DecodeSegments(CsContext& context, CsCall& call) {
  SegmentReader& reader = *context.segmentReader;
  for (;;) {
    switch (reader.state) {
      case SegmentReader::State::kHead:
        if (!Gather(reader, call)) return CS_END_INBUFFER;
        if (const int failed = OpenSegment(context); failed != CS_OK) return failed;
        break;
      case SegmentReader::State::kData: {
        if (AvailableInSegment(reader, call) == 0 && !reader.coderHolds) return CS_END_INBUFFER;
        const int result = DecodeSegment(context, call);
        if (result != CS_END_INBUFFER && result != CS_END_OF_STREAM) return result;
        if (result == CS_END_INBUFFER && reader.left == 0) reader.state = SegmentReader::State::kHead;
        break;
      }
      case SegmentReader::State::kRest:
        if (const int result = SkipRest(context, call); result != CS_OK) return result;
        break;
      case SegmentReader::State::kTrailer:
        return Gather(reader, call) ? CheckTrailer(context) : CS_END_INBUFFER;
      case SegmentReader::State::kShortEnd:
        return CS_OK;
    }
  }
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
  return NewChecksums(context, 0);
}

int CompressSegments(CsContext& context, CsCall& call) {
  SegmentWriter& writer = *context.segmentWriter;
  if (call.IsStart()) {
    // The stream header goes to the caller as it is, outside of segments and checksums.
    CsCall head = call;
    head.in = nullptr;
    head.inLen = 0;
    head.outLen = std::min(call.outLen, CS_HEAD_SIZE);
    const int result = RunCompressor(context, head);
    if (result < 0) return result;
    call.written = head.written;
    if (call.inLen == 0 && call.written == call.outLen) return result;
  }
  bool starved = false;
  for (;;) {
    if (!Drain(writer, call)) return CS_END_OUTBUFFER;
    if (writer.trailerMade) return CS_END_OF_STREAM;
    if (writer.coderDone) {
      MakeTrailer(context);
    } else if (starved) {
      return CS_END_INBUFFER;
    } else {
      const int result = EncodeSegment(context, call);
      if (result < 0) return result;
      starved = result == CS_END_INBUFFER;
    }
  }
}

int DecompressSegments(CsContext& context, CsCall& call) {
  if (call.IsStart()) {
    CsCall head = call;
    head.inLen = CS_HEAD_SIZE;
    head.outLen = 0;
    const int result = RunDecompressor(context, head);
    if (result < 0) return result;
    call.read = CS_HEAD_SIZE;
    if (result == CS_END_OF_STREAM) context.segmentReader->state = SegmentReader::State::kTrailer;
    if (call.inLen == CS_HEAD_SIZE) return CS_END_INBUFFER;
    // Of an empty stream there is nothing to make room for.
    if (call.outLen == 0 && CsRGetLen(call.in) > 0) return CS_END_OUTBUFFER;
  }
  return DecodeSegments(context, call);
}

}  // namespace tolven

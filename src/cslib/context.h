#pragma once

// What one handle keeps between calls, and the way from there to the coder of its stream.
//
// Sizes, for those who want many handles: a context is some hundred bytes. An LZH compressor adds 300 KiB, of
// which 128 KiB are touched only when a caller's room is too small for a block; an LZH decompressor 32 KiB;
// an LZC compressor 161 KiB; an LZC decompressor 272 KiB.

#include <cstdint>
#include <memory>

#include "cslib/bytes.h"
#include "cslib/crc32.h"
#include "cslib/cslib.h"
#include "cslib/lzc_compress.h"
#include "cslib/lzc_decompress.h"
#include "cslib/lzh_compress.h"
#include "cslib/lzh_decompress.h"
#include "cslib/segments.h"
#include "cslib/stream_header.h"

namespace tolven {

// One call behind the gate. Whoever takes or gives bytes moves the cursors, and so the counts that the caller
// is told are always those of what really happened, whichever way the call ends.
struct CsCall {
  CsInput in;
  CsOutput out;
};

enum class CsDirection : std::uint8_t { kNone, kCompress, kDecompress };

// A coder's memory is taken at the first start call that needs it and kept for the life of the context: a
// handle that only reads LZH streams never holds a compressor.
struct CsContext {
  CsDirection direction = CsDirection::kNone;  // kNone: no start call yet, continuation calls are refused
  StreamHeader header;                         // of the stream, as its start call found or made it
  CsResult lastResult = CS_OK;                 // of the stream's previous call
  std::unique_ptr<LzhCompressState> lzhCompress;
  std::unique_ptr<LzhDecompressState> lzhDecompress;
  std::unique_ptr<LzcCompressState> lzcCompress;
  std::unique_ptr<LzcDecompressState> lzcDecompress;

  // Only for streams with checksum framing, and while tracing.
  std::unique_ptr<Crc32Handle> dataCrc;    // over the uncompressed bytes
  std::unique_ptr<Crc32Handle> streamCrc;  // over the compressed bytes
  std::unique_ptr<SegmentWriter> segmentWriter;
  std::unique_ptr<SegmentReader> segmentReader;
};

// Checksums and staging of a stream that ended, or that a start call abandons. The coders keep their memory.
void ReleaseStream(CsContext& context);

// The coder that context.header asks for, its memory taken if it is not there yet, set to the beginning of a
// stream. False when memory is exhausted.
[[nodiscard]] bool StartCompressor(CsContext& context);
[[nodiscard]] bool StartDecompressor(CsContext& context);

// One call of that coder. The cursors are those of the call, or a part of it that segments cut out.
CsResult RunCompressor(CsContext& context, CsInput& in, CsOutput& out);
CsResult RunDecompressor(CsContext& context, CsInput& in, CsOutput& out);

}  // namespace tolven

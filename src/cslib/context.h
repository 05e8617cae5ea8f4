#pragma once

// What one handle keeps between calls.

#include <cstdint>
#include <memory>

#include "cslib/crc32.h"
#include "cslib/lzc.h"
#include "cslib/lzh_compress.h"
#include "cslib/lzh_decompress.h"
#include "cslib/segments.h"

namespace tolven {

struct Crc32HandleDeleter {
  void operator()(Crc32Handle* handle) const { CRC32FreeHandle(handle); }
};
using Crc32HandlePtr = std::unique_ptr<Crc32Handle, Crc32HandleDeleter>;

// One call as the caller made it, and what came of it so far. `total` is used by compression alone.
struct CsCall {
  std::int32_t total = 0;
  const std::uint8_t* in = nullptr;
  std::int32_t inLen = 0;
  std::uint8_t* out = nullptr;
  std::int32_t outLen = 0;
  int options = 0;
  std::int32_t read = 0;
  std::int32_t written = 0;

  bool IsStart() const { return (options & 1) != 0; }
};

enum class CsDirection : std::uint8_t { kNone, kCompress, kDecompress };

// A coder's memory is taken at the first start call that needs it and kept for the life of the context: a
// handle that only reads LZH streams never holds a compressor.
struct CsContext {
  CsDirection direction = CsDirection::kNone;  // kNone: no start call yet, continuation calls are refused
  int algorithm = 0;                           // CS_ALGORITHM_LZC or CS_ALGORITHM_LZH
  int lastResult = 0;                          // of the stream's previous call
  LzhCompressStatePtr lzhCompress;
  LzhDecompressStatePtr lzhDecompress;
  LzcCompressStatePtr lzcCompress;
  LzcDecompressStatePtr lzcDecompress;

  // Only for streams with checksum framing, and while tracing.
  bool framed = false;
  Crc32HandlePtr dataCrc;    // over the uncompressed bytes
  Crc32HandlePtr streamCrc;  // over the compressed bytes
  std::unique_ptr<SegmentWriter> segmentWriter;
  std::unique_ptr<SegmentReader> segmentReader;
};

// Checksums and staging of a stream that ended, or that a start call abandons. The coders keep their memory.
void ReleaseStream(CsContext& context);

// The coder of context.algorithm, its memory taken if it is not there yet. False when memory is exhausted.
bool ProvideCompressor(CsContext& context);
bool ProvideDecompressor(CsContext& context);

// One call of that coder; fills call.read and call.written.
int RunCompressor(CsContext& context, CsCall& call);
int RunDecompressor(CsContext& context, CsCall& call);

}  // namespace tolven

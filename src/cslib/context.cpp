#include "cslib/context.h"

#include <new>

namespace tolven {
namespace {

// Makes the state if it is not there yet. Default-initialised: a coder's start writes all that it reads, and
// clearing some hundred kilobytes first would be for nothing.
template <typename State>
bool Provide(std::unique_ptr<State>& state) {
  try {
    if (!state) state = std::make_unique_for_overwrite<State>();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

void ReleaseStream(CsContext& context) {
  context.dataCrc.reset();
  context.streamCrc.reset();
  context.segmentWriter.reset();
  context.segmentReader.reset();
}

bool StartCompressor(CsContext& context) {
  const StreamHeader& header = context.header;
  if (header.algorithm == CS_ALGORITHM_LZH) {
    if (!Provide(context.lzhCompress)) return false;
    StartComprLZH(*context.lzhCompress, header.length, header.parameter);
    return true;
  }
  if (!Provide(context.lzcCompress)) return false;
  StartComprLZC(*context.lzcCompress, header.length);
  return true;
}

bool StartDecompressor(CsContext& context) {
  const StreamHeader& header = context.header;
  if (header.algorithm == CS_ALGORITHM_LZH) {
    if (!Provide(context.lzhDecompress)) return false;
    StartDecomprLZH(*context.lzhDecompress, header.length);
    return true;
  }
  if (!Provide(context.lzcDecompress)) return false;
  StartDecomprLZC(*context.lzcDecompress, header.length, header.parameter);
  return true;
}

// The state is there: a call gets here only behind a start call of the same direction, which provided it, and
// the algorithm is the one of that start call.
CsResult RunCompressor(CsContext& context, CsInput& in, CsOutput& out) {
  return context.header.algorithm == CS_ALGORITHM_LZH ? CsRComprLZH(*context.lzhCompress, in, out)
                                                      : CsRComprLZC(*context.lzcCompress, in, out);
}

CsResult RunDecompressor(CsContext& context, CsInput& in, CsOutput& out) {
  return context.header.algorithm == CS_ALGORITHM_LZH ? CsRDecomprLZH(*context.lzhDecompress, in, out)
                                                      : CsRDecomprLZC(*context.lzcDecompress, in, out);
}

}  // namespace tolven

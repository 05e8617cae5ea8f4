#include "cslib/context.h"

#include "cslib/cslib.h"
#include "cslib/trace.h"

namespace tolven {

void ReleaseStream(CsContext& context) {
  context.dataCrc.reset();
  context.streamCrc.reset();
  context.segmentWriter.reset();
  context.segmentReader.reset();
}

bool ProvideCompressor(CsContext& context) {
  if (context.algorithm == CS_ALGORITHM_LZH) {
    if (!context.lzhCompress) context.lzhCompress = NewLzhCompressState();
    return context.lzhCompress != nullptr;
  }
  if (!context.lzcCompress) context.lzcCompress = NewLzcCompressState();
  return context.lzcCompress != nullptr;
}

bool ProvideDecompressor(CsContext& context) {
  if (context.algorithm == CS_ALGORITHM_LZH) {
    if (!context.lzhDecompress) context.lzhDecompress = NewLzhDecompressState();
    return context.lzhDecompress != nullptr;
  }
  if (!context.lzcDecompress) context.lzcDecompress = NewLzcDecompressState();
  return context.lzcDecompress != nullptr;
}

int RunCompressor(CsContext& context, CsCall& call) {
  if (context.algorithm == CS_ALGORITHM_LZH) {
    return CsRComprLZH(*context.lzhCompress, call.total, call.in, call.inLen, call.out, call.outLen,
                       call.options, CsTraceLevel() != 0, &call.read, &call.written);
  }
  return CsRComprLZC(*context.lzcCompress, call.total, call.in, call.inLen, call.out, call.outLen,
                     call.options, &call.read, &call.written);
}

int RunDecompressor(CsContext& context, CsCall& call) {
  if (context.algorithm == CS_ALGORITHM_LZH) {
    return CsRDecomprLZH(*context.lzhDecompress, call.in, call.inLen, call.out, call.outLen, call.options,
                         &call.read, &call.written);
  }
  return CsRDecomprLZC(*context.lzcDecompress, call.in, call.inLen, call.out, call.outLen, call.options,
                       &call.read, &call.written);
}

}  // namespace tolven

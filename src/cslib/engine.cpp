// CsRCompress and CsRDecompress: argument checks, the state of the stream in its handle, choice of the coder.

#include <algorithm>

#include "cslib/context.h"
#include "cslib/cslib.h"
#include "cslib/handle_table.h"
#include "cslib/trace.h"

namespace tolven {
namespace {

// What the two directions differ in.
struct Side {
  const char* name;
  CsDirection direction;
  int (*start)(CsContext& context, const CsCall& call);  // sets the stream up; CS_OK or a negative code
  int (*run)(CsContext& context, CsCall& call);
  bool compresses;
};

int Provide(CsContext& context, bool ready, const char* message) {
  if (ready) return CS_OK;
  ReleaseStream(context);
  CsTPrintf("%s", message);
  return CS_E_MEMORY;
}

int StartCompress(CsContext& context, const CsCall& call) {
  context.algorithm = call.options & CS_ALGORITHM_MASK;
  context.framed = (call.options & CS_CHECKSUM) != 0;
  if (context.algorithm != CS_ALGORITHM_LZC && context.algorithm != CS_ALGORITHM_LZH) {
    CsTPrintf("ERROR: CsRCompress: Unknow Algorithmus.\n");
    return CS_E_UNKNOWN_ALG;
  }
  const bool ready = ProvideCompressor(context) && (!context.framed || StartSegmentWriter(context));
  return Provide(context, ready, "ERROR: CsRCompress: Could not allocate internal buffer\n");
}

int StartDecompress(CsContext& context, const CsCall& call) {
  if (call.in == nullptr || call.inLen < CS_HEAD_SIZE) {
    CsTPrintf("ERROR: CsRDecompress(init): inlen = %d\n", call.inLen);
    return CS_E_IN_BUFFER_LEN;
  }
  const int code = CsRGetAlgorithm(call.in);
  context.framed = (code & CS_ALG_CODE_CHECKSUM) != 0;
  switch (code & ~CS_ALG_CODE_CHECKSUM) {
    case CS_ALG_CODE_LZC:
      context.algorithm = CS_ALGORITHM_LZC;
      break;
    case CS_ALG_CODE_LZH:
      context.algorithm = CS_ALGORITHM_LZH;
      break;
    default:
      return CS_E_UNKNOWN_ALG;
  }
  const bool ready = ProvideDecompressor(context) && (!context.framed || StartSegmentReader(context));
  return Provide(context, ready, "ERROR: CsRDecompress: Could not allocate memory\n");
}

int RunCompress(CsContext& context, CsCall& call) {
  return context.framed ? CompressSegments(context, call) : RunCompressor(context, call);
}

int RunDecompress(CsContext& context, CsCall& call) {
  return context.framed ? DecompressSegments(context, call) : RunDecompressor(context, call);
}

constexpr Side kCompress = {"CsRCompress", CsDirection::kCompress, StartCompress, RunCompress, true};
constexpr Side kDecompress = {"CsRDecompress", CsDirection::kDecompress, StartDecompress, RunDecompress,
                              false};

// Two empty ranges may meet, and a stream header is read before anything is written.
int CheckBuffers(const Side& side, const CsCall& call) {
  if (call.inLen < 0 || (call.in == nullptr && call.inLen > 0)) return CS_E_IN_BUFFER_LEN;
  if (call.outLen < 0) return CS_E_OUT_BUFFER_LEN;
  if (call.out == nullptr && call.outLen > 0) return CS_E_NO_OUT_BUFFER;
  const std::int32_t readFirst = call.IsStart() && !side.compresses ? CS_HEAD_SIZE : 0;
  if (call.in == call.out && call.inLen > readFirst && call.outLen > 0) return CS_E_SAME_BUFFER;
  return CS_OK;
}

// A call that goes on with a stream: whether what the last call asked for is there. CS_OK lets the coder run;
// any other value is the result of the call.
int CheckContinuation(const CsContext& context, const Side& side, const CsCall& call) {
  const bool staged = side.compresses ? context.segmentWriter != nullptr : context.segmentReader != nullptr;
  if (context.direction != side.direction) {
    CsTPrintf("ERROR: %s: internal buffer is not initialised\n", side.name);
    return CS_E_NO_STAGING;
  }
  if (context.lastResult < 0) return context.lastResult;
  if (const int refused = CheckBuffers(side, call); refused != CS_OK) return refused;
  if (context.lastResult == CS_END_OF_STREAM && call.inLen == 0) return CS_END_OF_STREAM;
  if (context.framed && !staged) {
    CsTPrintf("ERROR: %s: internal buffer is not initialised\n", side.name);
    return CS_E_NO_STAGING;
  }
  if (context.lastResult == CS_END_OUTBUFFER && call.outLen == 0) {
    CsTPrintf("ERROR: %s: Expect out buffer but not provided.\n", side.name);
    return CS_E_OUT_EXPECTED;
  }
  if (context.lastResult == CS_END_INBUFFER && context.algorithm == CS_ALGORITHM_LZH && call.inLen == 0) {
    CsTPrintf("ERROR: %s: Expect input but not provided.\n", side.name);
    return CS_E_IN_EXPECTED;
  }
  return CS_OK;
}

// A start call forgets whatever stream the handle carried, finished or not.
int StartStream(CsContext& context, const Side& side, const CsCall& call) {
  ReleaseStream(context);
  context.direction = side.direction;
  context.lastResult = CS_OK;
  const int refused = side.start(context, call);
  return refused != CS_OK ? refused : CheckBuffers(side, call);
}

int RunStream(CsContext& context, const Side& side, CsCall& call) {
  if (call.IsStart()) {
    if (const int refused = StartStream(context, side, call); refused != CS_OK) {
      return context.lastResult = refused;
    }
  } else if (const int settled = CheckContinuation(context, side, call); settled != CS_OK) {
    if (context.direction == side.direction) context.lastResult = settled;
    return settled;
  }
  context.lastResult = side.run(context, call);
  if (context.lastResult < 0) CsTPrintf("ERROR: %s: return value = %d\n", side.name, context.lastResult);
  return context.lastResult;
}

// Streams without framing carry no checksums; while tracing they get them, for the trace lines alone.
void TraceChecksums(CsContext& context, const Side& side, const CsCall& call) {
  const std::uint8_t* data = side.compresses ? call.in : call.out;
  const std::uint8_t* stream = side.compresses ? call.out : call.in;
  const std::int32_t dataLen = side.compresses ? call.read : call.written;
  const std::int32_t streamLen = side.compresses ? call.written : call.read;
  if (!context.framed) {
    if (!context.dataCrc) context.dataCrc.reset(CRC32NewHandle(0));
    if (!context.streamCrc) context.streamCrc.reset(CRC32NewHandle(0));
    CRC32HBuffer(context.dataCrc.get(), data, static_cast<std::uint32_t>(dataLen), false);
    CRC32HBuffer(context.streamCrc.get(), stream, static_cast<std::uint32_t>(streamLen), false);
  }
  if ((CsTraceLevel() & kTraceLines) != 0 && context.dataCrc && context.streamCrc) {
    CsTPrintf("    data: position = %u    CRC = %8x\n", context.dataCrc->total, context.dataCrc->crcRegister);
    CsTPrintf("    stream: position = %u    CRC = %8x\n", context.streamCrc->total,
              context.streamCrc->crcRegister);
  }
  if ((CsTraceLevel() & kTraceDumps) != 0) {
    TshowBuf("compressed", stream, streamLen);
    TshowBuf("uncompressed", data, dataLen);
  }
}

int RunTraced(CsContext& context, const Side& side, int handle, CsCall& call) {
  const bool lines = (CsTraceLevel() & kTraceLines) != 0;
  if (lines) {
    CsTPrintf(">>%s: handle = %3d   options = %x\n", side.name, handle, static_cast<unsigned>(call.options));
    CsTPrintf("    user: inlen = %d    outlen = %d\n", call.inLen, call.outLen);
  }
  const int result = RunStream(context, side, call);
  if (result >= 0) TraceChecksums(context, side, call);
  if (lines) CsTPrintf("<<%s: rc = %d\n", side.name, result);
  return result;
}

int Call(const Side& side, int handle, CsCall call, std::int32_t* read, std::int32_t* written) {
  *read = *written = 0;
  CsContext* context = FindContext(handle);
  if (context == nullptr) {
    CsTPrintf("ERROR: %s: invalid handle\n", side.name);
    return CS_E_HANDLE;
  }
  constexpr int kPerCall = kTraceLines | kTraceDumps;
  const int result = (CsTraceLevel() & kPerCall) == 0 ? RunStream(*context, side, call)
                                                      : RunTraced(*context, side, handle, call);
  // Not before the trace has had its lines from the checksums.
  if (result == CS_END_OF_STREAM) ReleaseStream(*context);
  *read = call.read;
  *written = call.written;
  return result;
}

}  // namespace

int CsRCompress(int handle, std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written) {
  return Call(kCompress, handle, CsCall{total, in, inLen, out, outLen, options}, read, written);
}

int CsRDecompress(int handle, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written) {
  return Call(kDecompress, handle, CsCall{0, in, inLen, out, outLen, options}, read, written);
}

int CsRInitCompress(int handle, std::uint8_t* out, std::int32_t total, int options) {
  std::int32_t read = 0, written = 0;
  return std::min(
      CsRCompress(handle, total, nullptr, 0, out, CS_HEAD_SIZE, options | CS_INIT, &read, &written), 0);
}

int CsRInitDecompress(int handle, const std::uint8_t* in) {
  std::int32_t read = 0, written = 0;
  return std::min(CsRDecompress(handle, in, CS_HEAD_SIZE, nullptr, 0, CS_INIT, &read, &written), 0);
}

}  // namespace tolven

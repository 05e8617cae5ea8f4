// The gate: the entry points of the engine, what they check before a coder may run, and what they tell the
// trace.
//
// Everything that a caller can get wrong is judged here and only here: the handle, the lengths, null and
// shared buffers, the options, the stream header, and whether what the previous call asked for was brought
// along. The order of the checks is part of the interface, since a call may be wrong in several ways:
//
//   a start call       handle; algorithm (with the 8 bytes it stands in); buffers; room for a header; header
//   a continuing call  handle; direction; an earlier failure; buffers; the end; staging; what was asked for
//
// A refused start leaves its code behind as the last result, so that the handle's old stream cannot be
// continued by a caller who did not look: the coder may already have been set to something else.

#include "cslib/cslib.h"

#include <optional>

#include "cslib/context.h"
#include "cslib/handle_table.h"
#include "cslib/trace.h"

namespace tolven {
namespace {

// One call as the caller made it, nothing of it believed yet. `total` is used by compression alone.
struct Arguments {
  std::int32_t total = 0;
  const std::uint8_t* in = nullptr;
  std::int32_t inLen = 0;
  std::uint8_t* out = nullptr;
  std::int32_t outLen = 0;
  int options = 0;

  [[nodiscard]] bool IsStart() const { return (options & CS_INIT) != 0; }
};

// What a check found: the result of the call, or nothing, in which case the coder runs. Not every verdict is
// a refusal: a start call with nothing but a header in it is settled here, too.
using Verdict = std::optional<CsResult>;

// What the two directions differ in.
struct Side {
  const char* name;
  CsDirection direction;
  Verdict (*start)(CsContext& context, const Arguments& arguments, CsCall& call);
  CsResult (*run)(CsContext& context, CsCall& call);
  bool compresses;
};

// Whether pointers and lengths can be what they claim. `readFirst`: input that is read before any output is
// written. Two empty ranges may meet anywhere; other overlaps than that of the two beginnings are not looked
// for: a caller who unpacks within one buffer knows what he does.
Verdict CheckBuffers(const Arguments& arguments, std::int32_t readFirst) {
  if (arguments.inLen < 0 || (arguments.in == nullptr && arguments.inLen > 0)) return CS_E_IN_BUFFER_LEN;
  if (arguments.outLen < 0) return CS_E_OUT_BUFFER_LEN;
  if (arguments.out == nullptr && arguments.outLen > 0) return CS_E_NO_OUT_BUFFER;
  if (arguments.in == arguments.out && arguments.inLen > readFirst && arguments.outLen > 0) {
    return CS_E_SAME_BUFFER;
  }
  return std::nullopt;
}

// The only place where cursors are made from what a caller gave. Behind it lengths are never negative, null
// goes with empty, and sizes have one type.
void Enter(const Arguments& arguments, CsCall& call) {
  call.in = CsInput({arguments.in, static_cast<std::size_t>(arguments.inLen)});
  call.out = CsOutput({arguments.out, static_cast<std::size_t>(arguments.outLen)});
}

// Nothing is left half made: what there is of checksums and staging goes, the coder's state stays for the
// next try.
CsResult OutOfMemory(CsContext& context, const char* message) {
  ReleaseStream(context);
  CsTPrintf("%s", message);
  return CS_E_MEMORY;
}

// The header goes into the caller's room before there is memory for a coder. That does no harm: it counts as
// written only when everything else is in place.
Verdict StartCompress(CsContext& context, const Arguments& arguments, CsCall& call) {
  if (const CsResult refused = HeaderFromOptions(arguments.total, arguments.options, context.header);
      refused != CS_OK) {
    CsTPrintf("ERROR: CsRCompress: Unknow Algorithmus.\n");
    return refused;
  }
  if (const Verdict refused = CheckBuffers(arguments, 0)) return refused;
  Enter(arguments, call);
  if (call.out.Room() < CS_HEAD_SIZE) return CS_E_OUT_BUFFER_LEN;
  const CsResult written = WriteStreamHeader(context.header, call.out.Rest().first<CS_HEAD_SIZE>());
  if (written != CS_OK) return written;
  if (!StartCompressor(context) || (context.header.framed && !StartSegmentWriter(context))) {
    return OutOfMemory(context, "ERROR: CsRCompress: Could not allocate internal buffer\n");
  }
  call.out.at += CS_HEAD_SIZE;
  // LZH wants room before it looks at any input; LZC may take a byte for which it has nothing to write yet.
  if (context.header.algorithm == CS_ALGORITHM_LZH && call.out.Room() == 0) return CS_END_OUTBUFFER;
  return std::nullopt;
}

// What the stream says about itself is believed only where it cannot hurt: the length is a limit for the
// output and takes no memory, the algorithm chooses among two, framing and widths are bounded by tables of
// fixed size. So a header from anywhere costs at most one coder's memory.
Verdict StartDecompress(CsContext& context, const Arguments& arguments, CsCall& call) {
  if (arguments.in == nullptr || arguments.inLen < CS_HEAD_SIZE) {
    CsTPrintf("ERROR: CsRDecompress(init): inlen = %d\n", arguments.inLen);
    return CS_E_IN_BUFFER_LEN;
  }
  const ConstStreamHeaderBytes bytes(arguments.in, CS_HEAD_SIZE);
  StreamHeader& header = context.header;
  if (const CsResult refused = ReadAlgorithm(bytes, header); refused != CS_OK) return refused;
  if (const Verdict refused = CheckBuffers(arguments, CS_HEAD_SIZE)) return refused;
  if (const CsResult refused = ReadStreamHeader(bytes, header); refused != CS_OK) return refused;
  Enter(arguments, call);
  if (!StartDecompressor(context) || (header.framed && !StartSegmentReader(context))) {
    return OutOfMemory(context, "ERROR: CsRDecompress: Could not allocate memory\n");
  }
  call.in.at += CS_HEAD_SIZE;
  // Nothing is coded behind an LZC header that declares no bytes, and so there is nothing to wait for.
  const bool nothingCoded = header.algorithm == CS_ALGORITHM_LZC && header.length == 0;
  if (nothingCoded && !header.framed) return CS_END_OF_STREAM;
  if (call.in.Left() == 0) return CS_END_INBUFFER;
  // Without room only the header is read. An empty stream has nothing to make room for.
  if (call.out.Room() == 0 && header.length > 0) return CS_END_OUTBUFFER;
  return std::nullopt;
}

CsResult RunCompress(CsContext& context, CsCall& call) {
  return context.header.framed ? CompressSegments(context, call) : RunCompressor(context, call.in, call.out);
}

CsResult RunDecompress(CsContext& context, CsCall& call) {
  return context.header.framed ? DecompressSegments(context, call)
                               : RunDecompressor(context, call.in, call.out);
}

constexpr Side kCompress = {"CsRCompress", CsDirection::kCompress, StartCompress, RunCompress, true};
constexpr Side kDecompress = {"CsRDecompress", CsDirection::kDecompress, StartDecompress, RunDecompress,
                              false};

// A stream that never was, or one of the other direction: the handle has nothing that this call could go on
// with.
CsResult NotInitialised(const Side& side) {
  CsTPrintf("ERROR: %s: internal buffer is not initialised\n", side.name);
  return CS_E_NO_STAGING;
}

// A call that goes on with a stream: whether what the last call asked for is there.
Verdict CheckContinuation(const CsContext& context, const Side& side, const Arguments& arguments) {
  if (context.direction != side.direction) return NotInitialised(side);
  if (context.lastResult < 0) return context.lastResult;
  if (const Verdict refused = CheckBuffers(arguments, 0)) return refused;
  const bool noInput = arguments.inLen == 0, noRoom = arguments.outLen == 0;
  if (context.lastResult == CS_END_OF_STREAM && noInput) return CS_END_OF_STREAM;
  // A framed stream that ended has given its staging back.
  const bool staged = side.compresses ? context.segmentWriter != nullptr : context.segmentReader != nullptr;
  if (context.header.framed && !staged) return NotInitialised(side);
  if (context.lastResult == CS_END_OUTBUFFER && noRoom) {
    CsTPrintf("ERROR: %s: Expect out buffer but not provided.\n", side.name);
    return CS_E_OUT_EXPECTED;
  }
  const bool lzh = context.header.algorithm == CS_ALGORITHM_LZH;
  if (context.lastResult == CS_END_INBUFFER && lzh && noInput) {
    CsTPrintf("ERROR: %s: Expect input but not provided.\n", side.name);
    return CS_E_IN_EXPECTED;
  }
  if (lzh && noInput && noRoom) return CS_E_INVALID_ADDR;
  return std::nullopt;
}

// A start call forgets whatever stream the handle carried, finished or not, and does so before it looks at
// anything else: a refused start leaves no stream behind that could be continued by mistake.
Verdict StartStream(CsContext& context, const Side& side, const Arguments& arguments, CsCall& call) {
  ReleaseStream(context);
  context.direction = side.direction;
  return side.start(context, arguments, call);
}

// The result is what the next call of the stream is judged by.
CsResult Keep(CsContext& context, const Side& side, CsResult result) {
  if (result < 0) CsTPrintf("ERROR: %s: return value = %d\n", side.name, result);
  return context.lastResult = result;
}

// One call, from the caller's arguments to a result that the next call is judged by. A start call runs the
// coder in the same breath: a caller may hand in a whole stream at once.
CsResult RunStream(CsContext& context, const Side& side, const Arguments& arguments, CsCall& call) {
  if (arguments.IsStart()) {
    if (const Verdict settled = StartStream(context, side, arguments, call)) {
      return Keep(context, side, *settled);
    }
  } else {
    if (const Verdict settled = CheckContinuation(context, side, arguments)) {
      // A call in the wrong direction says nothing about the stream that the handle carries.
      if (context.direction == side.direction) context.lastResult = *settled;
      return *settled;
    }
    Enter(arguments, call);
  }
  return Keep(context, side, side.run(context, call));
}

// --- Trace

void Feed(std::unique_ptr<Crc32Handle>& crc, std::span<const std::uint8_t> bytes) {
  if (!crc) crc = CRC32NewHandle(0);
  CRC32HBuffer(crc.get(), bytes.data(), static_cast<std::uint32_t>(bytes.size()), false);
}

// Streams without framing carry no checksums; while tracing they get them, for the trace lines alone.
void TraceChecksums(CsContext& context, const Side& side, const CsCall& call) {
  const std::span<const std::uint8_t> read(call.in.begin, call.in.Taken());
  const std::span<const std::uint8_t> written(call.out.begin, call.out.Produced());
  const std::span<const std::uint8_t> data = side.compresses ? read : written;
  const std::span<const std::uint8_t> stream = side.compresses ? written : read;
  if (!context.header.framed) {
    Feed(context.dataCrc, data);
    Feed(context.streamCrc, stream);
  }
  if ((CsTraceLevel() & kTraceLines) != 0 && context.dataCrc && context.streamCrc) {
    CsTPrintf("    data: position = %u    CRC = %8x\n", context.dataCrc->total, context.dataCrc->crcRegister);
    CsTPrintf("    stream: position = %u    CRC = %8x\n", context.streamCrc->total,
              context.streamCrc->crcRegister);
  }
  if ((CsTraceLevel() & kTraceDumps) != 0) {
    TshowBuf("compressed", stream.data(), static_cast<std::int32_t>(stream.size()));
    TshowBuf("uncompressed", data.data(), static_cast<std::int32_t>(data.size()));
  }
}

// The same call with its lines around it. Kept apart so that a call without tracing asks for the level once.
CsResult RunTraced(CsContext& context, const Side& side, int handle, const Arguments& arguments,
                   CsCall& call) {
  const bool lines = (CsTraceLevel() & kTraceLines) != 0;
  if (lines) {
    CsTPrintf(">>%s: handle = %3d   options = %x\n", side.name, handle,
              static_cast<unsigned>(arguments.options));
    CsTPrintf("    user: inlen = %d    outlen = %d\n", arguments.inLen, arguments.outLen);
  }
  const CsResult result = RunStream(context, side, arguments, call);
  if (result >= 0) TraceChecksums(context, side, call);
  if (lines) CsTPrintf("<<%s: rc = %d\n", side.name, result);
  return result;
}

CsResult Call(const Side& side, int handle, const Arguments& arguments, std::int32_t* read,
              std::int32_t* written) {
  *read = *written = 0;
  CsContext* context = FindContext(handle);
  if (context == nullptr) {
    CsTPrintf("ERROR: %s: invalid handle\n", side.name);
    return CS_E_HANDLE;
  }
  CsCall call;
  constexpr int kPerCall = kTraceLines | kTraceDumps;
  const CsResult result = (CsTraceLevel() & kPerCall) == 0
                              ? RunStream(*context, side, arguments, call)
                              : RunTraced(*context, side, handle, arguments, call);
  // Not before the trace has had its lines from the checksums.
  if (result == CS_END_OF_STREAM) ReleaseStream(*context);
  *read = static_cast<std::int32_t>(call.in.Taken());
  *written = static_cast<std::int32_t>(call.out.Produced());
  return result;
}

// Forms that give a code for failure and CS_OK for anything else: 2 and 3 are no news behind a header alone.
CsResult FailureOf(CsResult result) {
  return result < 0 ? result : CS_OK;
}

bool TracesCalls() {
  return CsTraceLevel() == kTraceCalls;
}

// The second half of a line that the entry point began.
CsResult TracedResult(CsResult result) {
  if (TracesCalls()) CsTPrintf("  rc = %d\n", result);
  return result;
}

// The fixed handles are opened by the first start call that needs them and stay open. CS_OK or a failure.
CsResult OpenFixed(int handle, int options, std::int32_t* read, std::int32_t* written) {
  *read = *written = 0;
  if ((options & CS_INIT) == 0) return CS_OK;
  const int opened = CsOpenHandle(handle);
  return opened < 0 ? static_cast<CsResult>(opened) : CS_OK;
}

}  // namespace

// --- On a handle of the caller's own

CsResult CsRCompress(int handle, std::int32_t total, const std::uint8_t* in, std::int32_t inLen,
                     std::uint8_t* out, std::int32_t outLen, int options, std::int32_t* read,
                     std::int32_t* written) {
  return Call(kCompress, handle, Arguments{total, in, inLen, out, outLen, options}, read, written);
}

CsResult CsRDecompress(int handle, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                       std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written) {
  return Call(kDecompress, handle, Arguments{0, in, inLen, out, outLen, options}, read, written);
}

CsResult CsRInitCompress(int handle, std::uint8_t* out, std::int32_t total, int options) {
  std::int32_t read = 0, written = 0;
  return FailureOf(
      CsRCompress(handle, total, nullptr, 0, out, CS_HEAD_SIZE, options | CS_INIT, &read, &written));
}

CsResult CsRInitDecompress(int handle, const std::uint8_t* in) {
  std::int32_t read = 0, written = 0;
  return FailureOf(CsRDecompress(handle, in, CS_HEAD_SIZE, nullptr, 0, CS_INIT, &read, &written));
}

// --- On the fixed handles, and their forms with the place of the call for the trace

CsResult _CsCompr(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written) {
  if (const CsResult failed = OpenFixed(CS_COMPR_HANDLE, options, read, written); failed != CS_OK)
    return failed;
  return CsRCompress(CS_COMPR_HANDLE, total, in, inLen, out, outLen, options, read, written);
}

CsResult _CsDecompr(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
                    int options, std::int32_t* read, std::int32_t* written) {
  if (const CsResult failed = OpenFixed(CS_DECOMPR_HANDLE, options, read, written); failed != CS_OK)
    return failed;
  return CsRDecompress(CS_DECOMPR_HANDLE, in, inLen, out, outLen, options, read, written);
}

CsResult _CsComprEx(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                    std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written,
                    const char* file, int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsCompr:  option = %d", file, line, options);
  return TracedResult(_CsCompr(total, in, inLen, out, outLen, options, read, written));
}

CsResult _CsDecomprEx(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
                      int options, std::int32_t* read, std::int32_t* written, const char* file, int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsDecompr:  option = %d", file, line, options);
  return TracedResult(_CsDecompr(in, inLen, out, outLen, options, read, written));
}

CsResult _CsInitCompr(std::uint8_t* out, std::int32_t total, int options) {
  std::int32_t read = 0, written = 0;
  return FailureOf(_CsCompr(total, nullptr, 0, out, CS_HEAD_SIZE, options | CS_INIT, &read, &written));
}

CsResult _CsInitComprEx(std::uint8_t* out, std::int32_t total, int options, const char* file, int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsInitCompr:", file, line);
  return TracedResult(_CsInitCompr(out, total, options));
}

CsResult _CsInitDecompr(const std::uint8_t* in) {
  std::int32_t read = 0, written = 0;
  return FailureOf(_CsDecompr(in, CS_HEAD_SIZE, nullptr, 0, CS_INIT, &read, &written));
}

CsResult _CsInitDecomprEx(const std::uint8_t* in, const char* file, int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsInitDecompr:", file, line);
  return TracedResult(_CsInitDecompr(in));
}

}  // namespace tolven

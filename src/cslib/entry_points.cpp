// The entry points on the two fixed handles, and their forms with the place of the call for the trace.

#include <algorithm>

#include "cslib/cslib.h"
#include "cslib/trace.h"

namespace tolven {
namespace {

bool TracesCalls() {
  return CsTraceLevel() == kTraceCalls;
}

int TracedResult(int result) {
  if (TracesCalls()) CsTPrintf("  rc = %d\n", result);
  return result;
}

}  // namespace

int _CsCompr(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
             std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written) {
  if ((options & CS_INIT) != 0) {
    if (const int failed = CsOpenHandle(CS_COMPR_HANDLE); failed < 0) {
      *read = *written = 0;
      return failed;
    }
  }
  return CsRCompress(CS_COMPR_HANDLE, total, in, inLen, out, outLen, options, read, written);
}

int _CsDecompr(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
               int options, std::int32_t* read, std::int32_t* written) {
  if ((options & CS_INIT) != 0) {
    if (const int failed = CsOpenHandle(CS_DECOMPR_HANDLE); failed < 0) {
      *read = *written = 0;
      return failed;
    }
  }
  return CsRDecompress(CS_DECOMPR_HANDLE, in, inLen, out, outLen, options, read, written);
}

int _CsComprEx(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
               std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written, const char* file,
               int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsCompr:  option = %d", file, line, options);
  return TracedResult(_CsCompr(total, in, inLen, out, outLen, options, read, written));
}

int _CsDecomprEx(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
                 int options, std::int32_t* read, std::int32_t* written, const char* file, int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsDecompr:  option = %d", file, line, options);
  return TracedResult(_CsDecompr(in, inLen, out, outLen, options, read, written));
}

int _CsInitCompr(std::uint8_t* out, std::int32_t total, int options) {
  std::int32_t read = 0, written = 0;
  return std::min(_CsCompr(total, nullptr, 0, out, CS_HEAD_SIZE, options | CS_INIT, &read, &written), 0);
}

int _CsInitComprEx(std::uint8_t* out, std::int32_t total, int options, const char* file, int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsInitCompr:", file, line);
  return TracedResult(_CsInitCompr(out, total, options));
}

int _CsInitDecompr(const std::uint8_t* in) {
  std::int32_t read = 0, written = 0;
  return std::min(_CsDecompr(in, CS_HEAD_SIZE, nullptr, 0, CS_INIT, &read, &written), 0);
}

int _CsInitDecomprEx(const std::uint8_t* in, const char* file, int line) {
  if (TracesCalls()) CsTPrintf("CS: %s(%d): CsInitDecompr:", file, line);
  return TracedResult(_CsInitDecompr(in));
}

}  // namespace tolven

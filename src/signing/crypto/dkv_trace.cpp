#include "signing/crypto/dkv_trace.h"

#include <cstdarg>

#include "signing/crypto/qelsecu.h"

namespace tolven {
namespace {

std::FILE* traceFile = nullptr;
int traceLevel = 0;

}  // namespace

void VantaCryptoLibSetTraceFile(std::FILE* file) {
  traceFile = file;
}

void VantaCryptoLibSetTraceLevel(int level) {
  traceLevel = level;
  QelSecu_SetTraceLevel(level);
}

void DkvTrace(int level, const char* format, ...) {
  if (traceFile == nullptr || level > traceLevel) return;
  std::va_list args;
  va_start(args, format);
  std::vfprintf(traceFile, format, args);
  va_end(args);
  // The trace is read after crashes, too.
  std::fflush(traceFile);
}

extern "C" void VantaCryptoLib_Trace_Callback(int level, const char* line) {
  if (line != nullptr) DkvTrace(level, "%s", line);
}

}  // namespace tolven

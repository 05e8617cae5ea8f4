#include "trace.h"

#include <openssl/err.h>

#include <cstdarg>
#include <cstdio>

#include "api.h"

namespace tolven::crypto {
namespace {

QelTraceCallback traceCallback = nullptr;
int traceLevel = 0;

}  // namespace

void Trace(int level, const char* format, ...) {
  if (traceCallback == nullptr || level > traceLevel) return;
  char line[1024];
  std::va_list args;
  va_start(args, format);
  int length = std::vsnprintf(line, sizeof line - 1, format, args);
  va_end(args);
  if (length < 0) return;
  if (length > static_cast<int>(sizeof line) - 2) length = static_cast<int>(sizeof line) - 2;
  line[length] = '\n';
  line[length + 1] = '\0';
  traceCallback(level, line);
}

void TraceFailure(const char* function, int rc, const char* where) {
  if (rc != DKV_OK) {
    const char* name = DkvRcName(rc);
    Trace(kTraceError, "%s: %d %s %s", function, rc, name == nullptr ? "" : name, where);
  }
  // The queue must be empty for the next call in any case.
  while (const unsigned long error = ERR_get_error()) {
    char text[256];
    ERR_error_string_n(error, text, sizeof text);
    Trace(rc == DKV_OK ? kTraceDetail : kTraceError, "%s: %s", function, text);
  }
}

extern "C" {

DKV_API int Qelcryptolib_RegisterTraceCallback(QelTraceCallback callback) {
  traceCallback = callback;
  return DKV_OK;
}

DKV_API int Qelcryptolib_UnregisterTraceCallback(void) {
  traceCallback = nullptr;
  return DKV_OK;
}

DKV_API int Qelcryptolib_SetTraceLevel(int level) {
  traceLevel = level;
  return DKV_OK;
}

}  // extern "C"
}  // namespace tolven::crypto

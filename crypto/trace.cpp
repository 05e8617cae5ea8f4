#include "trace.h"

#include <openssl/err.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "api.h"

namespace tolven::crypto {
namespace {

QelTraceCallback traceCallback = nullptr;
int traceLevel = 0;
std::string lastInfo;

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

void SetInfo(const std::string& text) noexcept {
  try {
    lastInfo = text;
  } catch (const std::bad_alloc&) {
    lastInfo.clear();
  }
}

std::string UnsupportedAlgorithm() {
  std::string name;
  const char* data = nullptr;
  int flags = 0;
  while (const unsigned long error = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags)) {
    char text[256];
    ERR_error_string_n(error, text, sizeof text);
    Trace(kTraceError, "%s", text);
    // A failed fetch leaves its only word about the algorithm here: "..., Algorithm (RC2-40-CBC : 0), ...".
    constexpr std::string_view kMark = "Algorithm (";
    const std::string_view said = (flags & ERR_TXT_STRING) != 0 && data != nullptr ? data : "";
    const std::size_t at = said.find(kMark);
    if (!name.empty() || at == std::string_view::npos) continue;
    const std::string_view rest = said.substr(at + kMark.size());
    name = rest.substr(0, rest.find(' '));
  }
  return name;
}

Failure Unsupported(const std::string& algorithm) {
  return Failure(DKV_ERR_ALG_NOT_SUPPORTED, "algorithm", "It is " + algorithm + ".");
}

extern "C" {

DKV_API int DkvSecTKLastErrorInfo(const char** text) {
  if (text == nullptr) return DKV_ERR_ARGUMENT;
  *text = lastInfo.c_str();
  return DKV_OK;
}

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

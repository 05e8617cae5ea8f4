#include "signing/crypto/trace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <memory>

#include "signing/crypto/qelsecu.h"
#include "signing/crypto/secudir.h"

namespace tolven {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

struct TraceState {
  int level = 0;
  std::unique_ptr<std::FILE, FileCloser> file;
};

TraceState& State() {
  static TraceState state;
  return state;
}

std::FILE* libraryTraceFile = nullptr;
int libraryTraceLevel = 0;

// One line of whichever part of the trace. It is read after crashes, too: the line must be there when the
// next thing goes wrong.
void WriteLine(std::FILE* file, const char* format, std::va_list args) {
  std::vfprintf(file, format, args);
  std::fflush(file);
}

int LevelFromEnvironment() {
  const char* text = std::getenv("QELMANIFEST_TRACELEVEL");
  if (text == nullptr || *text == '\0') return 0;
  char* end = nullptr;
  const long level = std::strtol(text, &end, 10);
  return *end == '\0' && level > 0 && level <= 9 ? static_cast<int>(level) : 0;
}

}  // namespace

void OpenManifestTrace() {
  TraceState& state = State();
  if (state.file != nullptr) return;
  state.level = LevelFromEnvironment();
  if (state.level == 0) return;
  const int fd = open(InStartDirectory("dev_qelmanifest.trc").c_str(),
                      O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
  struct stat status {};
  if (fd < 0) return;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) state.file.reset(fdopen(fd, "a"));
  if (state.file == nullptr) close(fd);
}

void CloseManifestTrace() {
  State() = TraceState{};
}

int ManifestTraceLevel() {
  return State().level;
}

std::FILE* ManifestTraceFile() {
  return State().file.get();
}

void ManifestTrace(const char* format, ...) {
  std::FILE* file = State().file.get();
  if (file == nullptr) return;
  std::va_list args;
  va_start(args, format);
  WriteLine(file, format, args);
  va_end(args);
}

void VantaCryptoLibSetTraceFile(std::FILE* file) {
  libraryTraceFile = file;
}

void VantaCryptoLibSetTraceLevel(int level) {
  libraryTraceLevel = level;
  QelSecu_SetTraceLevel(level);
}

void DkvTrace(int level, const char* format, ...) {
  if (libraryTraceFile == nullptr || level > libraryTraceLevel) return;
  std::va_list args;
  va_start(args, format);
  WriteLine(libraryTraceFile, format, args);
  va_end(args);
}

extern "C" void VantaCryptoLib_Trace_Callback(int level, const char* line) {
  if (line != nullptr) DkvTrace(level, "%s", line);
}

}  // namespace tolven

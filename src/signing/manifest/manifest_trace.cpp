#include "signing/manifest/manifest_trace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <memory>

#include "signing/manifest/start_directory.h"

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
  std::vfprintf(file, format, args);
  va_end(args);
  std::fflush(file);  // the line must be there when the next thing goes wrong
}

}  // namespace tolven

// The library entry: one extraction by the same processor and commands, with the output collected.

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <type_traits>

#include "fileio/working_directory.h"
#include "main/crypto_use.h"
#include "main/factories.h"
#include "main/processor.h"
#include "main/run_guarded.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "tolven/tolven.h"

namespace tolven {

namespace {

// Everything below these entries is process-wide, so calls of several threads wait for each other. Neither
// the mutex nor the texts are destroyed when the process ends: exit handlers of the host come later than
// ours.
std::mutex g_oneCall;
static_assert(std::is_trivially_destructible_v<std::mutex>);

// Callers keep pointers to texts for as long as the process lives. A chain that nobody owns: never released,
// always reachable.
struct HandedOut {
  std::string text;
  const HandedOut* before;
};
const HandedOut* g_handedOut = nullptr;
std::atomic<const char*> g_output = nullptr;

void HandOut(const std::string& text) {
  g_output = nullptr;
  try {
    g_handedOut = std::make_unique<HandedOut>(HandedOut{text, g_handedOut}).release();
    g_output = g_handedOut->text.c_str();
  } catch (const std::bad_alloc&) {
    // No text: the exit code says what there is to say.
  }
}

void Run(CAPILogMan& collector, const ICommandFactory& factory, const char* archive, const char* target) {
  CProcessor& processor = *CProcessor::GetTheProcessor();
  processor.Reset();
  processor.SetLogManager(collector);
  processor.SetCommandFactory(factory);
  CmdOptions& options = processor.CmdLine().MutableOptions();
  options.command = CMD_EXTRACT;
  options.archiveText = archive;
  options.threads = 1;  // an embedding program has its own idea of who runs where
  if (target != nullptr && *target != '\0') options.targetDir = target;
  processor.Run();
}

std::int32_t Extract(const char* archive, const char* target) {
  CAPILogMan collector;
  RunStatus status{.logManager = &collector};  // until the processor installs its own, and after it is gone
  const RunStatusScope scope(status);
  std::int32_t code = 0;
  {
    const CWorkingDirectory start;
    const CCryptoUse use;  // ends behind the processor; handles may have one too
    const CCommandFactory factory;
    RunGuarded([&] { Run(collector, factory, archive, target); });
    code = RunStatus::Current().exitCode;
    // Nothing may point to the caller's texts, the factory or the collector once this returns.
    CProcessor::Destroy();
  }
  HandOut(collector.GetOutput());
  return code;
}

}  // namespace

}  // namespace tolven

extern "C" int32_t extractTOLVENArchive(const char* archive, const char* targetDirectory) {
  const std::lock_guard lock(tolven::g_oneCall);
  return tolven::Extract(archive, targetDirectory);
}

extern "C" const char* getTOLVENOutput(void) {
  return tolven::g_output;
}

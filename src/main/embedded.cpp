// The library entry: one extraction by the same processor and commands, with the output collected.

#include <list>
#include <memory>
#include <new>
#include <string>

#include "fileio/working_directory.h"
#include "main/command_factory.h"
#include "main/run_guarded.h"
#include "report/log_man.h"
#include "signing/manifest/manifest.h"
#include "tolven/tolven.h"

namespace tolven {

namespace {

constexpr std::int32_t kExitMemory = 2;
constexpr std::int32_t kExitUnexpected = 32;

// Texts handed out stay valid until the process ends: callers keep the pointers.
std::list<std::string>& HandedOut() {
  static std::list<std::string> texts;
  return texts;
}

const char* g_output = nullptr;

std::int32_t Extract(const std::string& archive, const std::string& target) {
  const CCommandFactory factory;
  const CWorkingDirectory start;
  CProcessor& processor = *CProcessor::GetTheProcessor();
  processor.Reset();
  auto owned = std::make_unique<CAPILogMan>();
  const CAPILogMan& collector = *owned;
  processor.SetLogManager(std::move(owned));
  processor.SetCommandFactory(factory);
  CmdOptions& options = processor.CmdLine().MutableOptions();
  options.command = CMD_EXTRACT;
  if (!archive.empty()) options.archiveText = archive.c_str();
  if (!target.empty()) options.targetDir = target.c_str();
  RunGuarded(processor, [&] { processor.Run(); });
  const std::int32_t code = processor.ExitCode();
  HandedOut().push_back(collector.GetOutput());
  g_output = HandedOut().back().c_str();
  // Nothing may point to the caller's texts, the factory or the collector once this returns.
  ManifestCleanup();
  CProcessor::Destroy();
  return code;
}

}  // namespace

}  // namespace tolven

extern "C" int32_t extractTOLVENArchive(const char* archive, const char* targetDirectory) {
  tolven::g_output = nullptr;
  try {
    return tolven::Extract(archive != nullptr ? archive : "",
                           targetDirectory != nullptr ? targetDirectory : "");
  } catch (const std::bad_alloc&) {
    return tolven::kExitMemory;
  } catch (...) {
    return tolven::kExitUnexpected;
  }
}

extern "C" const char* getTOLVENOutput(void) {
  return tolven::g_output;
}

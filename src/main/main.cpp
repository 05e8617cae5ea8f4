#include <memory>

#include "main/command_factory.h"
#include "main/release_info.h"
#include "main/run_guarded.h"
#include "report/usage.h"
#include "signing/manifest/manifest.h"

namespace {

int RunProgram(int argc, char** argv) {
  using namespace tolven;
  const CCommandFactory factory;
  CProcessor* processor = CProcessor::GetTheProcessor();
  processor->SetLogManager(std::make_unique<CConsoleLogMan>());
  processor->SetCommandFactory(factory);
  if (argc == 2) {  // one argument, whatever it is, never runs a command
    processor->LogManager().PrintString(ReleaseInfo());
    CProcessor::Destroy();
    return 0;
  }
  RunGuarded(*processor, [&] {
    if (argc < 2) {
      processor->LogManager().PrintInfo(CUsage());
      return;
    }
    processor->CmdLine().SetOptions(argc, argv);
    processor->Run();
  });
  const int code = processor->ExitCode();
  ManifestCleanup();
  CProcessor::Destroy();
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  return RunProgram(argc, argv);
}

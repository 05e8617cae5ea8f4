#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "main/factories.h"
#include "main/processor.h"
#include "main/release_info.h"
#include "main/run_guarded.h"
#include "report/error_numbers.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "report/user_info.h"
#include "signing/manifest/manifest.h"

namespace {

using namespace tolven;

// A program may be started with a standard descriptor closed. The next file it opens would take that number,
// and messages would be written into an archive.
void OccupyStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF) continue;
    // Where there is no such device, something that can be neither written nor read does too.
    if (open("/dev/null", O_RDWR) < 0 && open("/", O_RDONLY | O_DIRECTORY) < 0) _exit(kErrorOpen);
  }
}

void RunCommandLine(int argc, char** argv, CLogMan& logManager, const ICommandFactory& factory) {
  CProcessor& processor = *CProcessor::GetTheProcessor();
  processor.SetLogManager(logManager);
  processor.SetCommandFactory(factory);
  if (argc < 2) {
    logManager.PrintInfo(CUsage());
  } else if (argc == 2) {  // one argument, whatever it is, never runs a command
    logManager.PrintString(ReleaseInfo());
  } else {
    processor.CmdLine().SetOptions(argc, argv);
    processor.Run();
  }
  logManager.Flush();  // while a size limit is an error of the write, and no signal
}

}  // namespace

// Nothing outside the guard allocates: a failure there would find nobody to report it.
int main(int argc, char** argv) {
  OccupyStandardDescriptors();
  CConsoleLogMan console;
  RunStatus status{.logManager = &console};  // until the processor installs its own
  const RunStatusScope scope(status);
  const CCommandFactory factory;
  RunGuarded([&] { RunCommandLine(argc, argv, console, factory); });
  const int code = RunStatus::Current().exitCode;
  ManifestCleanup();
  CProcessor::Destroy();
  return console.Finish(code);
}

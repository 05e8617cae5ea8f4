#pragma once

// The whole program as main starts it, its output collected.

#include <string>

#include "fuzz/support.h"
#include "main/factories.h"
#include "main/processor.h"
#include "main/run_guarded.h"
#include "report/log_man.h"
#include "signing/manifest/manifest.h"

namespace tolven::fuzz {

// Runs a command line (words separated by tabs); returns its exit code.
inline int RunProgram(const std::string& line) {
  Arguments arguments(line);
  const CCommandFactory factory;
  CAPILogMan output;
  CProcessor& processor = *CProcessor::GetTheProcessor();
  processor.SetLogManager(output);
  processor.SetCommandFactory(factory);
  RunGuarded([&] {
    processor.CmdLine().SetOptions(arguments.Count(), arguments.Vector());
    processor.Run();
  });
  const int code = processor.ExitCode();
  ManifestCleanup();
  CProcessor::Destroy();
  // An exception that is none of the program's own is a defect, whatever the file says.
  constexpr int kUnexpected = 32, kOutOfRange = 33, kLength = 34;
  Require(code != kUnexpected && code != kOutOfRange && code != kLength);
  return code;
}

}  // namespace tolven::fuzz

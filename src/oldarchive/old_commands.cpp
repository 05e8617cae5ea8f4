#include "oldarchive/old_commands.h"

#include <cstdint>
#include <vector>

#include "fileio/working_directory.h"
#include "oldarchive/old_reader.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "report/user_info.h"

namespace tolven {
namespace {

// A call of the flat library with what it answered.
struct Call {
  IRunServices& run;
  std::string archive;
  bool headerRead = false;
  std::uint64_t done = 0;
  int error = 0;
  std::string text = {};
};

// The header's event tells failures apart that share a number: the line that not all files could be extracted
// is for those that had entries in work.
void Watch(OrvEvent event, const char* /*name*/, void* data) {
  Call& call = *static_cast<Call*>(data);
  if (event == OrvEvent::kHeaderRead) {
    call.headerRead = true;
  } else {
    ++call.done;
    call.run.Statistics().CountFile();
  }
}

// The settings of the run as arguments of the older tool. `letter` is its command.
std::vector<std::string> MakeArguments(IRunServices& run, char letter) {
  const CmdOptions& options = run.Options();
  std::vector<std::string> arguments = {"TOLVEN", std::string(1, letter) + (options.verbose ? "v" : "")};
  if (options.flat) arguments.emplace_back("-flat");
  if (options.lowerCase) arguments.emplace_back("-lower");
  if (options.noPathValidation) arguments.emplace_back("-xnopvalid");
  if (!options.changeDirPermissions || options.forceExtraction) arguments.emplace_back("-h");
  if (letter == 'x' && options.targetDir != nullptr) {
    const std::string directory = options.targetDir;
    arguments.emplace_back("-R");
    // An embedding caller's directory may look like an option.
    arguments.push_back((directory.starts_with('-') ? "./" : "") + directory);
  }
  arguments.emplace_back("--");
  const std::vector<std::string>& names = run.CmdLine().GetNames();
  arguments.insert(arguments.end(), names.begin(), names.end());
  return arguments;
}

// The archive goes beside the arguments: in them, commas and patterns would be looked for in its name.
// True on success; else call.error and call.text tell.
bool Run(Call& call, char letter) {
  const std::vector<std::string> arguments = MakeArguments(call.run, letter);
  std::vector<const char*> argv;
  argv.reserve(arguments.size());
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  return iaxxorvl_ORV_Callback2(static_cast<int>(argv.size()), argv.data(), Watch, &call,
                                call.archive.c_str(), &call.error, &call.text) != 0;
}

// The library's message with the program's prefix, and its number.
CExcept Failure(const Call& call) {
  return CExcept("TOLVEN: " + call.text, call.error);
}

CExcept NotSigned(const std::string& archive) {
  return CExcept("TOLVEN: " + ShowText(archive) + " is not digitally signed", kErrorNotSigned);
}

// The program has an exception of its own for the -R directory, whose number is the system's. The library
// hands back neither, so the directory is asked once more. (21 is an empty name.)
void ThrowForTargetDirectory(const Call& call) {
  if (call.error != OLD_TARGET_DIR && call.error != OLD_OPTION_WITHOUT_NAME) return;
  const CWorkingDirectory start;
  const char* directory = call.run.Options().targetDir;
  if (!CWorkingDirectory::Enter(directory)) throw CChgDirExcept(directory, LastSystemError());
}

}  // namespace

void CTypeOld::Execute() {
  Call call{.run = m_run, .archive = m_archive};
  if (!m_run.Options().verifyAsked) {
    if (!Run(call, 't')) throw Failure(call);
    return;
  }
  // The header only tells whether the file is such an archive at all.
  std::uint64_t size = 0;
  if (iaxxorvl_UncomprArchiveBytes(m_archive.c_str(), &size, &call.error, &call.text) == 0) {
    throw Failure(call);
  }
  throw NotSigned(m_archive);
}

void CExtractOld::Execute() {
  const CmdOptions& options = m_run.Options();
  const std::string verb = options.command == CMD_TEST ? "tested" : "extracted";
  const bool writes = options.command == CMD_EXTRACT && !options.verifyAsked;

  Call call{.run = m_run, .archive = m_archive};
  if (!Run(call, writes ? 'x' : 'd')) {
    if (writes) ThrowForTargetDirectory(call);
    if (call.headerRead) PrintLine("TOLVEN: not all files could be " + verb);
    throw Failure(call);
  }
  if (options.verifyAsked) throw NotSigned(m_archive);
  PrintLine("TOLVEN: " + std::to_string(call.done) + " file(s) " + verb);
}

}  // namespace tolven

// A command line, words separated by tabs: parsed, its archive list made, its combination of options checked.
#include <set>
#include <string_view>

#include "cmdline/cmd_line.h"
#include "cmdline/usage_checker.h"
#include "fuzz/support.h"
#include "report/except.h"

namespace {

using namespace tolven;
using fuzz::Require;

constexpr const char* CmdOptions::*kTexts[] = {
    &CmdOptions::targetDir,     &CmdOptions::sourceDir,       &CmdOptions::includeFile,
    &CmdOptions::excludeFile,   &CmdOptions::renameFile,      &CmdOptions::hashAlgorithm,
    &CmdOptions::key,           &CmdOptions::securityLibrary, &CmdOptions::fText,
    &CmdOptions::crlFile,       &CmdOptions::tsaUrl,          &CmdOptions::signatureHashAlgorithm,
    &CmdOptions::proxyUrl,      &CmdOptions::archiveText,     &CmdOptions::manifestFile,
    &CmdOptions::permissionText};

// Credentials in an address, or a PIN in a key's.
bool HasSecret(std::string_view text) {
  return text.find('@') != std::string_view::npos || text.find("pin-value") != std::string_view::npos;
}

void CheckOptions(CCmdLine& line, const fuzz::Arguments& arguments) {
  const CmdOptions& options = line.Options();
  const std::set<const char*> given(arguments.Vector() + 1, arguments.Vector() + arguments.Count());
  for (const char* CmdOptions::*text : kTexts) {
    // A text with a secret in it is a copy: the argument itself is overwritten.
    const bool isGiven = given.count(options.*text) == 1;
    Require(options.*text == nullptr || isGiven || HasSecret(options.*text));
    Require(options.*text == nullptr || text == &CmdOptions::permissionText || (options.*text)[0] != '-');
  }
  Require(options.command >= CMD_NONE && options.command <= CMD_VERIFY_MANIFEST);
  for (const std::string& name : line.GetNames()) Require(!name.starts_with('-'));
  // What looks further than the names themselves would depend on the machine.
  const std::string archives = options.archiveText == nullptr ? "" : options.archiveText;
  if (archives.find_first_of("*?") != std::string::npos || options.ignoreCase) return;
  for (const std::string& name : line.GetArchsToProcess()) {
    Require(!name.empty() && (archives.empty() || archives.find(name) != std::string::npos));
  }
  CUsageChecker(line).Check();
  line.FormatFilenames();
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  fuzz::Arguments arguments(input.Text());
  CCmdLine line;
  try {
    line.SetOptions(arguments.Count(), arguments.Vector());
    CheckOptions(line, arguments);
  } catch (const CExcept& except) {
    static const std::set<int> kNumbers = {18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 29, 31, 46, 53};
    Require(kNumbers.count(except.GetNumber()) == 1);
  }
}

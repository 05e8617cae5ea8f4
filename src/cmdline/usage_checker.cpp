#include "cmdline/usage_checker.h"

#include "report/error_numbers.h"
#include "report/except.h"

namespace tolven {
namespace {

struct Rule {
  bool (*isBroken)(CCmdLine& cmdLine, const CmdOptions& options);
  const char* message;
  int number;
};

bool HasNoNames(CCmdLine& cmdLine, const CmdOptions& options) {
  return cmdLine.GetNames().empty() && options.includeFile == nullptr;
}

// The first seven concern one command each; from -C on a rule applies to every command.
constexpr Rule kRules[] = {
    {[](CCmdLine& line, const CmdOptions& o) {
       return o.command == CMD_CREATE && HasNoNames(line, o) && o.renameFile == nullptr;
     },
     "TOLVEN: no files given for archiving", kErrorNoNames},
    {[](CCmdLine& line, const CmdOptions& o) {
       return (o.command == CMD_EXTRACT || o.command == CMD_SIGN) && line.GetArchsToProcess().empty();
     },
     "TOLVEN: no archives specified for extracting", kErrorNoNames},
    {[](CCmdLine& line, const CmdOptions& o) { return o.command == CMD_APPEND && HasNoNames(line, o); },
     "TOLVEN: no files specified for appending", kErrorNoNames},
    {[](CCmdLine& line, const CmdOptions& o) { return o.command == CMD_SCAN && HasNoNames(line, o); },
     "TOLVEN: no files specified for scanning", kErrorNoNames},
    {[](CCmdLine& line, const CmdOptions& o) { return o.command == CMD_SIGN && !HasNoNames(line, o); },
     "TOLVEN: additionally files are not allowed for signing an archive", kErrorOption},
    {[](CCmdLine& line, const CmdOptions& o) {
       return o.command == CMD_VERIFY_MANIFEST && o.manifestFile == nullptr &&
              line.GetArchsToProcess().empty();
     },
     "TOLVEN: no manifest specified", kErrorOption},
    {[](CCmdLine&, const CmdOptions& o) { return o.command == CMD_MERGE && (o.verifySignature || o.sign); },
     "TOLVEN: no signatures supported for merging", kErrorSigned},
    {[](CCmdLine&, const CmdOptions& o) { return o.command == CMD_NONE; },
     "TOLVEN: please specify a command (one of -c, -x, -t, -d, -a, -m, -l, -S, -M)", kErrorNoCommand},
    {[](CCmdLine&, const CmdOptions& o) { return o.sourceDir != nullptr && o.absolutePaths; },
     "TOLVEN: don't use both P-option and C-option", kErrorPWithC},
    {[](CCmdLine&, const CmdOptions& o) { return o.sourceDir != nullptr && o.command != CMD_CREATE; },
     "TOLVEN: use C-option only with create (-c)", kErrorCWithoutCreate},
    {[](CCmdLine&, const CmdOptions& o) {
       return o.renameFile != nullptr && o.command != CMD_CREATE && o.command != CMD_APPEND;
     },
     "TOLVEN: use T-option only with create (-c) or append (-a)", kErrorTWithoutWriting},
    {[](CCmdLine&, const CmdOptions& o) {
       return o.excludeFile != nullptr && o.command != CMD_CREATE && o.command != CMD_APPEND &&
              o.command != CMD_SCAN;
     },
     "TOLVEN: use X-option only with create (-c), append (-a) or scan (-l)", kErrorXWithoutInput},
    {[](CCmdLine&, const CmdOptions& o) {
       return o.targetDir != nullptr && o.command != CMD_EXTRACT && o.command != CMD_LIST;
     },
     "TOLVEN: use R-option only with extract (-x) or list content (-t)", kErrorRWithoutReading},
    {[](CCmdLine&, const CmdOptions& o) { return o.spaceCheck && o.command != CMD_LIST; },
     "TOLVEN: use s-option only with list content (-t)", kErrorSWithoutList},
    {[](CCmdLine&, const CmdOptions& o) { return o.lowerCase && o.command != CMD_EXTRACT; },
     "TOLVEN: use -lower only with extract (-x)", kErrorLowerWithoutExtract},
};

}  // namespace

void CUsageChecker::Check() const {
  const CmdOptions& options = m_cmdLine.Options();
  const bool renamesAreNames =
      options.command == CMD_CREATE && options.renameFile != nullptr && options.includeFile == nullptr;
  if (renamesAreNames) m_cmdLine.FillFileList();
  for (const Rule& rule : kRules) {
    if (rule.isBroken(m_cmdLine, options)) throw CExcept(rule.message, rule.number);
  }
}

}  // namespace tolven

#include "cmdline/usage_checker.h"

#include <cerrno>

#include "report/except.h"

namespace tolven {
namespace {

struct Rule {
  bool (*isBroken)(CCmdLine& cmdLine, const CmdOptions& options);
  const char* message;
  int number;
  bool withSystemText;
};

bool HasNoNames(CCmdLine& cmdLine, const CmdOptions& options) {
  return cmdLine.GetNames().empty() && options.includeFile == nullptr;
}

// The first seven concern one command each; from -C on a rule applies to every command.
constexpr Rule kRules[] = {
    {[](CCmdLine& line, const CmdOptions& o) {
       return o.command == CMD_CREATE && HasNoNames(line, o) && o.renameFile == nullptr;
     },
     "TOLVEN: no files given for archiving", 29, true},
    {[](CCmdLine& line, const CmdOptions& o) {
       return (o.command == CMD_EXTRACT || o.command == CMD_SIGN) && line.GetArchsToProcess().empty();
     },
     "TOLVEN: no archives specified for extracting", 29, true},
    {[](CCmdLine& line, const CmdOptions& o) { return o.command == CMD_APPEND && HasNoNames(line, o); },
     "TOLVEN: no files specified for appending", 29, true},
    {[](CCmdLine& line, const CmdOptions& o) { return o.command == CMD_SCAN && HasNoNames(line, o); },
     "TOLVEN: no files specified for scanning", 29, true},
    {[](CCmdLine& line, const CmdOptions& o) { return o.command == CMD_SIGN && !HasNoNames(line, o); },
     "TOLVEN: additionally files are not allowed for signing an archive", 20, false},
    {[](CCmdLine& line, const CmdOptions& o) {
       return o.command == CMD_VERIFY_MANIFEST && o.manifestFile == nullptr &&
              line.GetArchsToProcess().empty();
     },
     "TOLVEN: no manifest specified", 20, false},
    {[](CCmdLine&, const CmdOptions& o) { return o.command == CMD_MERGE && (o.verifySignature || o.sign); },
     "TOLVEN: no signatures supported for merging", 53, false},
    {[](CCmdLine&, const CmdOptions& o) { return o.command == CMD_NONE; },
     "TOLVEN: please specify a command (one of -c, -x, -t, -d, -a, -m, -l, -S, -M)", 21, true},
    {[](CCmdLine&, const CmdOptions& o) { return o.sourceDir != nullptr && o.absolutePaths; },
     "TOLVEN: don't use both P-option and C-option", 22, true},
    {[](CCmdLine&, const CmdOptions& o) { return o.sourceDir != nullptr && o.command != CMD_CREATE; },
     "TOLVEN: use C-option only with create (-c)", 23, true},
    {[](CCmdLine&, const CmdOptions& o) {
       return o.renameFile != nullptr && o.command != CMD_CREATE && o.command != CMD_APPEND;
     },
     "TOLVEN: use T-option only with create (-c) or append (-a)", 24, true},
    {[](CCmdLine&, const CmdOptions& o) {
       return o.excludeFile != nullptr && o.command != CMD_CREATE && o.command != CMD_APPEND &&
              o.command != CMD_SCAN;
     },
     "TOLVEN: use X-option only with create (-c), append (-a) or scan (-l)", 25, true},
    {[](CCmdLine&, const CmdOptions& o) {
       return o.targetDir != nullptr && o.command != CMD_EXTRACT && o.command != CMD_LIST;
     },
     "TOLVEN: use R-option only with extract (-x) or list content (-t)", 26, true},
    {[](CCmdLine&, const CmdOptions& o) { return o.spaceCheck && o.command != CMD_LIST; },
     "TOLVEN: use s-option only with list content (-t)", 31, true},
    {[](CCmdLine&, const CmdOptions& o) { return o.lowerCase && o.command != CMD_EXTRACT; },
     "TOLVEN: use -lower only with extract (-x)", 46, true},
};

}  // namespace

void CUsageChecker::Check() const {
  const CmdOptions& options = m_cmdLine.Options();
  const bool renamesAreNames =
      options.command == CMD_CREATE && options.renameFile != nullptr && options.includeFile == nullptr;
  if (renamesAreNames) m_cmdLine.FillFileList();
  for (const Rule& rule : kRules) {
    if (!rule.isBroken(m_cmdLine, options)) continue;
    errno = 0;  // expanding the archive list may have left something
    throw CExcept(rule.message, rule.number, rule.withSystemText);
  }
}

}  // namespace tolven

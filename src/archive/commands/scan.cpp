// CScan: -l, declared with the other commands.

#include "archive/commands/commands.h"
#include "fileio/utils.h"
#include "report/except.h"
#include "report/log_man.h"
#include "report/run_status.h"

namespace tolven {

namespace {
constexpr const char* kListFile = "files.log";
}  // namespace

// A pattern from the command line is present when something matches it. The directory itself and its parent
// match patterns too, but no command takes them for it.
bool CScan::IsPresent(const std::string& name) const {
  const bool isPattern = name.find_first_of("*?") != std::string::npos;
  if (!isPattern || m_run.CmdLine().IsLiteralName(name)) return CUtils::ExistsFile(name);
  strFileData data;
  const FindHandle handle = CUtils::FileFindOpen(name, &data);
  bool found = handle != nullptr && CUtils::FileFindName(handle, &data);
  while (found && IsDotName(data.name.data())) found = CUtils::FileFindName(handle, &data);
  return found;
}

void CScan::Execute() {
  const std::vector<std::string>& names = m_run.CmdLine().GetNames();
  if (names.empty()) return;
  CLogMan& log = m_run.LogManager();
  const std::int32_t list = log.OpenLogFile(kListFile);
  if (list < 0) throw COpenExcept(kListFile, LastSystemError());
  log.WriteToLog(list, "# TOLVEN: list of missing files");
  log.WriteToLog(list, "# ==========================");
  bool missing = false;
  for (const std::string& name : names) {
    if (IsPresent(name)) continue;
    log.WriteToLog(list, name);
    missing = true;
  }
  if (missing) PrintLine(std::string("TOLVEN: some files are missing. See ") + kListFile);
}

}  // namespace tolven

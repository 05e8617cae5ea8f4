#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "cmdline/cmd_line.h"
#include "fileio/output_file.h"
#include "fileio/unique_fd.h"
#include "fileio/utils.h"
#include "main/run/command.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "report/statistics.h"

namespace tolven {

// Runs one command: prepares the options, picks the command, cleans up after it, keeps the exit code.
// Process-wide and single-threaded.
class CProcessor {
 public:
  // The singleton, made on first use together with the command line.
  static CProcessor* GetTheProcessor();
  // Ends the singleton and the command line.
  static void Destroy();

  CProcessor();
  ~CProcessor();
  CProcessor(const CProcessor&) = delete;
  CProcessor& operator=(const CProcessor&) = delete;

  // `logManager` must outlive the processor, or the next call.
  void SetLogManager(CLogMan& logManager);
  void SetLogManager(std::unique_ptr<CLogMan> logManager);
  // `factory` must outlive every Run.
  void SetCommandFactory(const ICommandFactory& factory) { m_pFactory = &factory; }

  // Prepares and runs the one command; throws whatever the command throws.
  void Run();
  // Forgets everything that a run left behind, the options included: the embedded entry starts afresh.
  void Reset();

  // Reports a file that cannot be read, and switches to scan-only mode unless -i is given.
  void FileNotAvail(const std::string& name, const std::string& reason);
  void FileNotAvail(const std::string& name) { FileNotAvail(name, std::string()); }
  // True iff `name` equals an entry of the exclude list.
  bool ExcludeThis(const std::string& name) const;
  // The archive that a create, an append or a signing writes. It stays locked until the run has nothing more
  // to do with it: until a failed one is removed, too.
  COutputFile& ArchiveFile() { return m_archiveFile; }
  // Removes the archive named in the name buffer, looked for from here, then from the start directory: only
  // the file that this run opened, only a regular one.
  void deleteArchive(const std::string& startDir);

  CLogMan& LogManager() { return *m_status.logManager; }
  CCmdLine& CmdLine() { return *m_pCmdLine; }
  const CmdOptions& Options() const { return m_pCmdLine->Options(); }
  CStatistics& Statistics() { return m_statistics; }
  // The -f text, cut to 4351 characters, or "DEFAULT.VRA": the one name that create, append and sign use.
  const char* ArchiveName() const { return m_archiveName.data(); }
  int Command() const { return m_command; }
  int ExitCode() const { return m_status.exitCode; }
  void SetExitCode(int code) { m_status.exitCode = code; }
  // Set once an inaccessible file was met without -i: the rest of the input is only checked.
  bool ScanOnly() const { return m_scanOnly; }
  bool HasInaccessibleFiles() const { return m_inaccessibleFiles; }
  // The directory the user started in; empty when it could not be determined.
  const std::string& StartDirectory() const { return m_startDir; }

 private:
  void PrepareExecution();
  void CheckUserOptions();
  void RedirectOutput();
  void RestoreOutput();
  void RunWriting(CCommand& command);

  static std::unique_ptr<CProcessor> m_pProc;

  RunStatus m_status;
  RunStatusScope m_statusScope;
  std::unique_ptr<CLogMan> m_logManager;  // null: the caller's
  CCmdLine* m_pCmdLine;
  const ICommandFactory* m_pFactory = nullptr;
  int m_command = CMD_NONE;
  std::array<char, kNameBufferSize> m_archiveName{};
  COutputFile m_archiveFile;
  CStatistics m_statistics;
  bool m_inaccessibleFiles = false;
  bool m_scanOnly = false;
  bool m_logNames = false;  // fixed by the first inaccessible file: names go to "tolven.log"
  bool m_logFileOpen = false;
  std::int32_t m_logFile = -1;
  std::string m_startDir;
  UniqueFd m_realOutput;  // descriptor 1 as it was before -e
};

}  // namespace tolven

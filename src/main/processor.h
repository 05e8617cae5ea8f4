#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "cmdline/run_services.h"
#include "fileio/output_file.h"
#include "fileio/unique_fd.h"
#include "fileio/utils.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "report/user_info.h"

namespace tolven {

// Runs one command: prepares the options, picks the command, cleans up after it, keeps the exit code.
// Process-wide and single-threaded.
class CProcessor : public IRunServices {
 public:
  // The singleton, made on first use together with the command line.
  static CProcessor* GetTheProcessor();
  // Ends the singleton and the command line.
  static void Destroy();

  CProcessor();
  ~CProcessor() override;
  CProcessor(const CProcessor&) = delete;
  CProcessor& operator=(const CProcessor&) = delete;

  // `logManager` must outlive the processor, or the next call.
  void SetLogManager(CLogMan& logManager);
  // `factory` must outlive every Run.
  void SetCommandFactory(const ICommandFactory& factory) { m_pFactory = &factory; }

  // Prepares and runs the one command; throws whatever the command throws.
  void Run();
  // Forgets everything that a run left behind, the options included: the embedded entry starts afresh.
  void Reset();

  void FileNotAvail(const std::string& name, const std::string& reason) override;
  void FileNotAvail(const std::string& name) { FileNotAvail(name, std::string()); }
  bool ExcludeThis(const std::string& name) const override;
  bool FindNewName(const std::string& oldName, std::string& newName) const override {
    return m_pCmdLine->FindNewName(oldName, newName);
  }
  COutputFile& ArchiveFile() override { return m_archiveFile; }
  // Removes the archive named in the name buffer, looked for from here, then from the start directory: only
  // the file that this run opened, only a regular one.
  void deleteArchive(const std::string& startDir);

  CLogMan& LogManager() override { return *m_status.logManager; }
  CCmdLine& CmdLine() override { return *m_pCmdLine; }
  const CmdOptions& Options() const override { return m_pCmdLine->Options(); }
  CStatistics& Statistics() override { return m_statistics; }
  const char* ArchiveName() const override { return m_archiveName.data(); }
  int Command() const override { return m_command; }
  int ExitCode() const override { return m_status.exitCode; }
  void SetExitCode(int code) override { m_status.exitCode = code; }
  bool ScanOnly() const override { return m_scanOnly; }
  const std::string& StartDirectory() const override { return m_startDir; }

 private:
  void PrepareExecution();
  void CheckUserOptions();
  void RedirectOutput();
  void RestoreOutput();
  void RunWriting(CCommand& command);

  static std::unique_ptr<CProcessor> m_pProc;

  RunStatus m_status;
  RunStatusScope m_statusScope;
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

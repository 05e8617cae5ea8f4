#include "main/processor.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "cmdline/usage_checker.h"
#include "fileio/extract_root.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {
namespace {

constexpr const char* kDefaultArchive = "DEFAULT.VRA";
constexpr const char* kOutputFile = "tolven_output";
constexpr const char* kLogFile = "tolven.log";

std::string CurrentDirectory() {
  std::array<char, kNameBufferSize> buffer;
  return getcwd(buffer.data(), buffer.size()) == nullptr ? std::string() : std::string(buffer.data());
}

bool IsWriting(int command) {
  return command == CMD_CREATE || command == CMD_APPEND;
}

}  // namespace

std::unique_ptr<CProcessor> CProcessor::m_pProc;

CProcessor* CProcessor::GetTheProcessor() {
  if (m_pProc == nullptr) m_pProc = std::make_unique<CProcessor>();
  return m_pProc.get();
}

void CProcessor::Destroy() {
  m_pProc.reset();
  CCmdLine::Destroy();
}

CProcessor::CProcessor() : m_statusScope(m_status), m_pCmdLine(CCmdLine::GetTheCmdLine()) {
  CExtractRoot::BeginRun();
}

CProcessor::~CProcessor() {
  RestoreOutput();
}

void CProcessor::SetLogManager(CLogMan& logManager) {
  m_status.logManager = &logManager;
}

void CProcessor::Run() {
  const std::time_t start = std::time(nullptr);
  PrepareExecution();
  CheckUserOptions();
  m_pCmdLine->FormatFilenames();
  m_startDir = CurrentDirectory();
  if (Options().addPrivileges && !CUtils::AddPrivileges()) throw CAddPrivilegeExcept("");

  m_command = Options().command;
  std::unique_ptr<CCommand> command;
  if (m_pFactory != nullptr) command = m_pFactory->MakeCommand(m_command, *this);
  if (command == nullptr) throw CExcept("TOLVEN: no valid command given", kErrorNoCommand);
  try {
    if (IsWriting(m_command)) {
      RunWriting(*command);
    } else {
      command->Execute();
    }
  } catch (...) {
    m_archiveFile.Release();
    throw;
  }
  m_archiveFile.Release();
  command.reset();

  if (Options().printStatistics) {
    m_statistics.SetElapsedSeconds(std::time(nullptr) - start);
    LogManager().PrintInfo(m_statistics);
  }
}

void CProcessor::PrepareExecution() {
  if (Options().redirectOutput) RedirectOutput();
  m_pCmdLine->MergeFileLists();
  m_pCmdLine->ProcessRenameList();
}

// The file is opened before anything is closed: when that fails, messages still have somewhere to go. A link
// is not followed: what it leads to is no output of this program.
void CProcessor::RedirectOutput() {
  const UniqueFd file(OpenRunFile(kOutputFile, O_RDWR | O_TRUNC));
  UniqueFd before(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!file || dup2(file.Get(), STDOUT_FILENO) < 0) {
    LogManager().PrintString(std::string("TOLVEN: could not redirect stdout to file ") + kOutputFile);
    return;
  }
  LogManager().OutputMoved(kOutputFile);
  m_realOutput = std::move(before);
}

void CProcessor::RestoreOutput() {
  if (!m_realOutput) return;
  // Closing by dup2 would keep a late failure of the file to itself.
  if (m_status.logManager != nullptr) m_status.logManager->Flush();
  dup2(m_realOutput.Get(), STDOUT_FILENO);
  if (m_status.logManager != nullptr) m_status.logManager->OutputMoved(nullptr);
  m_realOutput = UniqueFd();
}

void CProcessor::CheckUserOptions() {
  CUsageChecker(*m_pCmdLine).Check();
  const char* name = Options().archiveText == nullptr ? kDefaultArchive : Options().archiveText;
  m_archiveName.fill('\0');
  std::memcpy(m_archiveName.data(), name, std::min(std::strlen(name), m_archiveName.size() - 1));
}

// A create or append must not leave half an archive that looks like a whole one.
void CProcessor::RunWriting(CCommand& command) {
  try {
    command.Execute();
  } catch (const CWriteExcept&) {
    deleteArchive(m_startDir);
    throw;
  } catch (const CReadExcept&) {
    deleteArchive(m_startDir);
    throw;
  } catch (const CInvalManifestExcept&) {
    if (!Options().ignoreInaccessible) deleteArchive(m_startDir);
    throw;
  } catch (const CInvalSignatureExcept&) {
    if (!Options().ignoreInaccessible) deleteArchive(m_startDir);
    throw;
  }
  if (!m_inaccessibleFiles) return;
  if (Options().redirectOutput) {
    LogManager().PrintString("TOLVEN: some files could not be accessed (see TOLVEN.log for details)");
  }
  SetExitCode(kErrorInaccessible);
  if (!Options().ignoreInaccessible) deleteArchive(m_startDir);
}

void CProcessor::FileNotAvail(const std::string& name, const std::string& reason) {
  if (!m_inaccessibleFiles) m_logNames = Options().redirectOutput;
  m_inaccessibleFiles = true;
  if (m_logNames) {
    if (!m_logFileOpen) {
      m_logFile = LogManager().OpenLogFile(kLogFile);
      if (m_logFile < 0) throw COpenExcept(kLogFile, LastSystemError());
      LogManager().WriteToLog(m_logFile, "# List of inaccessible files");
      LogManager().WriteToLog(m_logFile, "# ==========================");
      m_logFileOpen = true;
    }
    LogManager().WriteToLog(m_logFile, name);
  } else {
    const std::string suffix = reason.empty() ? std::string() : " (" + reason + ")";
    LogManager().PrintString("TOLVEN: file '" + ShowText(name) + "' is inaccessible" + suffix);
  }
  if (!Options().ignoreInaccessible) m_scanOnly = true;
}

bool CProcessor::ExcludeThis(const std::string& name) const {
  const auto& excludes = m_pCmdLine->GetExcludeList();
  return std::binary_search(excludes.begin(), excludes.end(), name);
}

void CProcessor::deleteArchive(const std::string& startDir) {
  const std::string archive = ArchiveName();
  if (m_archiveFile.Remove(archive)) return;
  // -C may have led away from the directory that the name belongs to. An absolute name is joined all the
  // same.
  std::string path = startDir;
  if (!startDir.empty() && !archive.empty() && !startDir.ends_with('/') && !archive.starts_with('/')) {
    path += '/';
  }
  path += archive;
  std::replace(path.begin(), path.end(), '\\', '/');
  m_archiveFile.Remove(path);
}

void CProcessor::Reset() {
  RestoreOutput();
  CExtractRoot::BeginRun();
  m_status.exitCode = 0;
  m_status.files.clear();
  m_pCmdLine->Reset();
  m_command = CMD_NONE;
  m_archiveName.fill('\0');
  m_statistics = CStatistics();
  m_inaccessibleFiles = false;
  m_scanOnly = false;
  m_logNames = false;
  m_logFileOpen = false;
  m_logFile = -1;
  m_startDir.clear();
}

}  // namespace tolven

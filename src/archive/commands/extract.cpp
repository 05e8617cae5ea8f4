// CExtract: -x and -d, declared with the other commands.

#include <optional>

#include "archive/commands/commands.h"
#include "archive/extract_target.h"
#include "archive/selection.h"
#include "archive/signature.h"
#include "fileio/working_directory.h"
#include "oldarchive/old_commands.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/user_info.h"

namespace tolven {

void CExtract::Execute() {
  for (const std::string& name : m_run.CmdLine().GetArchsToProcess()) ProcessArchive(name);
}

void CExtract::ProcessArchive(const std::string& name) {
  try {
    ProcessCurrent(name);
  } catch (const CInvalExcept&) {
    CExtractOld(m_run, name).Execute();
  }
}

void CExtract::ProcessCurrent(const std::string& name) {
  const CmdOptions& options = m_run.Options();
  CArchive archive(name, kOpenRead, Services());
  if (!archive.IsValid()) throw CInvalExcept(name);
  PrintProcessingLine(archive);
  m_signature.VerifyArchiveSignature(false, archive, m_run);
  const CWorkingDirectory start;
  if (options.targetDir != nullptr && !CWorkingDirectory::Enter(options.targetDir)) {
    throw CChgDirExcept(options.targetDir, LastSystemError());
  }
  std::optional<CExtractTarget> target;
  if (!IsTest()) target.emplace(options, archive.Witness() != nullptr);
  archive.SetTarget(target ? &*target : nullptr);
  Counts counts;
  WalkAndFinish(archive, archive.Target(), counts);
  m_signature.PrintMessage(archive, m_run);
  PrintResult(counts);
  if (target && archive.Witness() != nullptr && options.verbose) PrintUncovered(counts);
}

// Whatever ends the walk, the directories get their dates and modes. So do links get made, but none of an
// archive that turned out not to be what was signed. The exit code stays that of the first failure.
void CExtract::WalkAndFinish(CArchive& archive, CExtractTarget* target, Counts& counts) {
  bool walked = false;
  try {
    CSelection selection(m_run.CmdLine().GetNames());
    archive.WantAllEntries(selection.SelectsAll());
    Walk(archive, selection, counts);
    m_signature.CheckErrors(archive, nullptr, counts.invalid, &selection);
    walked = true;
    if (target == nullptr) return;
    target->Finish();
    counts.failed += target->FailedLinks();
    counts.good -= target->FailedLinks();
  } catch (...) {
    const int code = m_run.ExitCode();
    if (!walked && target != nullptr) {
      try {
        if (archive.Witness() != nullptr) target->DropLinks();
        target->Finish();
      } catch (const CExcept&) {  // the first failure is the one to report
      }
    }
    m_run.SetExitCode(code);
    PrintIncomplete();
    throw;
  }
}

void CExtract::Walk(CArchive& archive, CSelection& selection, Counts& counts) {
  for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
    if (!selection.Selects(*entry)) {
      m_signature.PassEntry(archive, *entry);
    } else {
      ProcessEntry(archive, *entry, counts);
    }
  }
}

void CExtract::ProcessEntry(CArchive& archive, CDirEntry& entry, Counts& counts) {
  if (entry.IsSignedManifest()) {  // never written to disk; a test checks its data like any other
    if (IsTest()) entry.AddToDirEx(&archive, false);
    return;
  }
  m_run.Statistics().CountFile();
  if (entry.IsDirectory()) ++counts.directories;
  if (entry.IsLink()) ++counts.links;
  if (entry.AddToDir(&archive)) {
    ++counts.good;
    return;
  }
  ++counts.failed;
  if (entry.DoManifestAPI()) ++counts.invalid;
}

void CExtract::PrintResult(const Counts& counts) const {
  if (counts.failed > 0) {
    PrintIncomplete();
    return;
  }
  PrintLine("TOLVEN: " + std::to_string(counts.good) + " file(s) " + (IsTest() ? "tested" : "extracted"));
}

void CExtract::PrintUncovered(const Counts& counts) const {
  PrintLine("TOLVEN: " + std::to_string(counts.directories) + " directory(s) and " +
            std::to_string(counts.links) + " link(s) not covered by the signature");
}

void CExtract::PrintIncomplete() const {
  PrintLine(std::string("TOLVEN: not all files could be ") + (IsTest() ? "tested" : "extracted"));
}

}  // namespace tolven

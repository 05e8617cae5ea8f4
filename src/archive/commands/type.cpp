// CType: -t, declared with the other commands.

#include "archive/commands/commands.h"
#include "archive/selection.h"
#include "archive/signature.h"
#include "oldarchive/old_commands.h"
#include "report/except.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "report/user_info.h"

namespace tolven {

void CArchiveCommand::PrintProcessingLine(const CArchive& archive) {
  PrintLine("TOLVEN: processing archive " + ShowText(archive.Name()) + " (version " +
            archive.getVersionString() + ")");
}

CType::CType(IRunServices& run, const IEntryFactory& factory, const ISignature& signature,
             const IDiskProbe& probe)
    : CArchiveCommand(run, factory, signature),
      m_spaceInfo(probe, run.Options().targetDir != nullptr ? run.Options().targetDir : "."),
      m_spaceCheck(run.Options().spaceCheck) {}

void CType::Execute() {
  for (const std::string& name : m_run.CmdLine().GetArchsToProcess()) ListArchive(name);
  if (m_spaceCheck) m_run.LogManager().PrintInfo(m_spaceInfo);
}

void CType::ListArchive(const std::string& name) {
  try {
    ListCurrent(name);
  } catch (const CInvalExcept&) {
    m_spaceCheck = false;  // for the rest of the run: older archives are not accounted
    CTypeOld(m_run, name).Execute();
  }
}

void CType::ListCurrent(const std::string& name) {
  CArchive archive(name, kOpenRead, Services());
  if (!archive.IsValid()) throw CInvalExcept(name);
  PrintProcessingLine(archive);
  m_signature.VerifyArchiveSignature(false, archive, m_run);
  ListEntries(archive);
}

void CType::ListEntries(CArchive& archive) {
  CSelection selection(m_run.CmdLine().GetNames());
  archive.WantAllEntries(selection.SelectsAll());
  unsigned long invalid = 0;
  for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
    if (!selection.Selects(*entry)) {
      m_signature.PassEntry(archive, *entry);
      continue;
    }
    m_signature.CheckErrors(archive, entry, invalid, nullptr);
    entry->TypeInfo(m_run.LogManager());
    if (!entry->IsSignedManifest()) m_run.Statistics().CountFile();
    if (m_spaceCheck) m_spaceInfo.AddInfo(entry->GetName(), entry->GetSpaceNeeded(), true);
  }
  m_signature.CheckErrors(archive, nullptr, invalid, &selection);
  m_signature.PrintMessage(archive, m_run);
}

}  // namespace tolven

#include "archive/commands/type.h"

#include <cerrno>

#include "archive/archive.h"
#include "archive/commands/processing_line.h"
#include "archive/dir_entry.h"
#include "archive/selection.h"
#include "archive/signature.h"
#include "oldarchive/old_commands.h"
#include "report/log_man.h"
#include "report/statistics.h"

namespace tolven {

CType::CType(IRunServices& run, const IEntryFactory& factory, const ISignature& signature,
             const IDiskProbe& probe)
    : m_run(run),
      m_factory(factory),
      m_signature(signature),
      m_spaceInfo(probe, run.Options().targetDir != nullptr ? run.Options().targetDir : "."),
      m_spaceCheck(run.Options().spaceCheck) {}

void CType::Execute() {
  for (const std::string& name : m_run.CmdLine().GetArchsToProcess()) ListArchive(name);
  if (m_spaceCheck) m_run.LogManager().PrintInfo(m_spaceInfo);
}

void CType::ListArchive(const std::string& name) {
  errno = 0;
  CArchive archive(name, kOpenRead, {m_factory, m_run.Options(), m_buffers});
  if (!archive.IsValid()) {
    m_spaceCheck = false;  // for the rest of the run: older archives are not accounted
    CTypeOld(m_run, name).Execute();
    return;
  }
  PrintProcessingLine(archive);
  m_signature.VerifyArchiveSignature(false, archive, m_run);
  ListEntries(archive);
}

void CType::ListEntries(CArchive& archive) {
  CSelection selection(m_run.CmdLine().GetNames());
  archive.WantAllEntries(selection.SelectsAll());
  unsigned long invalid = 0;
  for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
    errno = 0;
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

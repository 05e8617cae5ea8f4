#include "archive/commands/type.h"

#include <cerrno>

#include "archive/archive.h"
#include "archive/commands/processing_line.h"
#include "archive/dir_entry.h"
#include "archive/selection.h"
#include "oldarchive/old_commands.h"
#include "signing/signed_manifest.h"

namespace tolven {

CType::CType(CProcessor& processor, const IEntryFactory& factory, const IDiskProbe& probe)
    : m_processor(processor),
      m_factory(factory),
      m_spaceInfo(probe, processor.Options().targetDir != nullptr ? processor.Options().targetDir : "."),
      m_spaceCheck(processor.Options().spaceCheck) {}

void CType::Execute() {
  const CEntryServices services(m_processor);
  for (const std::string& name : m_processor.CmdLine().GetArchsToProcess()) ListArchive(name);
  if (m_spaceCheck) m_processor.LogManager().PrintInfo(m_spaceInfo);
}

void CType::ListArchive(const std::string& name) {
  errno = 0;
  CArchive archive(name, kOpenRead, m_factory, m_processor.Options());
  if (!archive.IsValid()) {
    m_spaceCheck = false;  // for the rest of the run: older archives are not accounted
    CTypeOld(m_processor, name).Execute();
    return;
  }
  PrintProcessingLine(archive);
  CSignedManifest::VerifyArchiveSignature(false, &archive, &m_processor);
  ListEntries(archive);
}

void CType::ListEntries(CArchive& archive) {
  CSelection selection(m_processor.CmdLine().GetNames());
  archive.WantAllEntries(selection.SelectsAll());
  unsigned long invalid = 0;
  for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
    errno = 0;
    if (!selection.Selects(*entry)) {
      CSignedManifest::PassEntry(&archive, *entry);
      continue;
    }
    CSignedManifest::CheckErrors(&archive, entry, invalid);
    entry->TypeInfo();
    if (!entry->IsSignedManifest()) m_processor.Statistics().CountFile();
    if (m_spaceCheck) m_spaceInfo.AddInfo(entry->GetName(), entry->GetSpaceNeeded(), true);
  }
  CSignedManifest::CheckErrors(&archive, nullptr, invalid, &selection);
  CSignedManifest::PrintMessage(&archive, &m_processor);
}

}  // namespace tolven

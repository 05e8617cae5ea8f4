#pragma once

#include "archive/archive.h"
#include "cmdline/run_services.h"
#include "fileio/utils.h"
#include "signing/signed_manifest.h"

namespace tolven {

// Makes the entries of archives that are read; knows every class of them.
class CEntryFactory : public IEntryFactory {
 public:
  bool IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                      std::span<const std::uint8_t> accessInfo) const override;
  std::unique_ptr<CDirEntry> NewEntry(EntryClass entryClass) const override;
};

// Makes the concrete commands: code, letter and maker stand in one table.
class CCommandFactory : public ICommandFactory {
 public:
  std::unique_ptr<CCommand> MakeCommand(int code, IRunServices& run) const override;

  const IEntryFactory& Entries() const { return m_entries; }
  const ISignature& Signature() const { return m_signature; }
  const IDiskProbe& Probe() const { return m_probe; }

 private:
  CEntryFactory m_entries;
  CSignature m_signature;
  CDiskProbe m_probe;
};

}  // namespace tolven

#pragma once

#include "cmdline/run_services.h"
#include "fileio/disk_probe.h"
#include "main/entry_factory.h"
#include "signing/signed_manifest.h"

namespace tolven {

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

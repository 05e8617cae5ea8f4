#pragma once

#include "fileio/disk_probe.h"
#include "main/entry_factory.h"
#include "main/run/command.h"

namespace tolven {

// Makes the concrete commands: code, letter and maker stand in one table.
class CCommandFactory : public ICommandFactory {
 public:
  std::unique_ptr<CCommand> MakeCommand(int code, CProcessor& processor) const override;

  const IEntryFactory& Entries() const { return m_entries; }
  const IDiskProbe& Probe() const { return m_probe; }

 private:
  CEntryFactory m_entries;
  CDiskProbe m_probe;
};

}  // namespace tolven

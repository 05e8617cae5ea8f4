#pragma once

#include <memory>
#include <string>

#include "archive/entry_factory.h"
#include "archive/extract_target.h"
#include "main/run/command.h"
#include "main/run/processor.h"

namespace tolven {

class CArchive;
class CDirEntry;
class CSelection;

// -x and -d: extracts archives, or only checks their data. Archives of the older format go to their own
// reader.
class CExtract : public CCommand {
 public:
  // `factory` must outlive the command.
  CExtract(CProcessor& processor, const IEntryFactory& factory)
      : m_processor(processor), m_factory(factory) {}
  void Execute() override;

 private:
  struct Counts {
    unsigned long good = 0;
    unsigned long failed = 0;
    unsigned long invalid = 0;  // files that differ from the signed manifest; failed ones too
    unsigned long directories = 0;
    unsigned long links = 0;
  };

  void ProcessArchive(const std::string& name);
  void WalkAndFinish(CArchive& archive, CExtractTarget* target, Counts& counts);
  void Walk(CArchive& archive, CSelection& selection, Counts& counts);
  void ProcessEntry(CArchive& archive, CDirEntry& entry, Counts& counts);
  void PrintResult(const Counts& counts) const;
  void PrintUncovered(const Counts& counts) const;
  void PrintIncomplete() const;
  bool IsTest() const { return m_processor.Command() == CMD_TEST; }

  CProcessor& m_processor;
  const IEntryFactory& m_factory;
};

}  // namespace tolven

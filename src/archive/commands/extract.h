#pragma once

#include <memory>
#include <string>

#include "archive/compress_man.h"
#include "archive/entry_factory.h"
#include "archive/extract_target.h"
#include "cmdline/run_services.h"

namespace tolven {

class CArchive;
class ISignature;
class CDirEntry;
class CSelection;

// -x and -d: extracts archives, or only checks their data. Archives of the older format go to their own
// reader.
class CExtract : public CCommand {
 public:
  // All of them must outlive the command.
  CExtract(IRunServices& run, const IEntryFactory& factory, const ISignature& signature)
      : m_run(run), m_factory(factory), m_signature(signature) {}
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
  bool IsTest() const { return m_run.Command() == CMD_TEST; }

  IRunServices& m_run;
  const IEntryFactory& m_factory;
  const ISignature& m_signature;
  CCompressMan m_buffers;
};

}  // namespace tolven

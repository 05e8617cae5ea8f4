#pragma once

#include "archive/compress_man.h"
#include "archive/entry_factory.h"
#include "cmdline/run_services.h"

namespace tolven {

class CArchive;
class ISignature;

// -m: appends all entries of one archive to another. There is no index: the merge is a byte copy.
class CMerge : public CCommand {
 public:
  // All of them must outlive the command.
  CMerge(IRunServices& run, const IEntryFactory& factory, const ISignature& signature)
      : m_run(run), m_factory(factory), m_signature(signature) {}
  void Execute() override;

 private:
  void Copy(CArchive& source, CArchive& target);

  IRunServices& m_run;
  const IEntryFactory& m_factory;
  const ISignature& m_signature;
  CCompressMan m_buffers;
};

}  // namespace tolven

#pragma once

#include <string>

#include "archive/compress_man.h"
#include "archive/entry_factory.h"
#include "cmdline/run_services.h"
#include "report/space_info.h"

namespace tolven {

class CArchive;
class ISignature;

// -t: lists archives; with -V each file is checked while it is listed, with -s the space report follows.
class CType : public CCommand {
 public:
  // All of them must outlive the command.
  CType(IRunServices& run, const IEntryFactory& factory, const ISignature& signature,
        const IDiskProbe& probe);
  void Execute() override;

 private:
  void ListArchive(const std::string& name);
  void ListEntries(CArchive& archive);

  IRunServices& m_run;
  const IEntryFactory& m_factory;
  const ISignature& m_signature;
  CCompressMan m_buffers;
  CSpaceInfo m_spaceInfo;
  bool m_spaceCheck;
};

}  // namespace tolven

#pragma once

#include "archive/entry_factory.h"
#include "main/run/command.h"
#include "main/run/processor.h"

namespace tolven {

class CArchive;

// -m: appends all entries of one archive to another. There is no index: the merge is a byte copy.
class CMerge : public CCommand {
 public:
  // `factory` must outlive the command.
  CMerge(CProcessor& processor, const IEntryFactory& factory) : m_processor(processor), m_factory(factory) {}
  void Execute() override;

 private:
  void Copy(CArchive& source, CArchive& target) const;

  CProcessor& m_processor;
  const IEntryFactory& m_factory;
};

}  // namespace tolven

#pragma once

#include <string>

#include "archive/entry_factory.h"
#include "main/run/command.h"
#include "report/space_info.h"

namespace tolven {

class CArchive;

// -t: lists archives; with -V each file is checked while it is listed, with -s the space report follows.
class CType : public CCommand {
 public:
  // `factory` and `probe` must outlive the command.
  CType(CProcessor& processor, const IEntryFactory& factory, const IDiskProbe& probe);
  void Execute() override;

 private:
  void ListArchive(const std::string& name);
  void ListEntries(CArchive& archive);

  CProcessor& m_processor;
  const IEntryFactory& m_factory;
  CSpaceInfo m_spaceInfo;
  bool m_spaceCheck;
};

}  // namespace tolven

#pragma once

#include <string>

#include "main/run/processor.h"

namespace tolven {

// Lists one archive of the older format. What CType hands an archive to that is none of the current format.
class CTypeOld : public CCommand {
 public:
  // `processor` must outlive the object.
  CTypeOld(CProcessor& processor, std::string archive)
      : m_processor(processor), m_archive(std::move(archive)) {}
  // Throws CExcept with the flat library's number: 12 for a file of neither format, 59 under -V.
  void Execute() override;

 private:
  CProcessor& m_processor;
  std::string m_archive;
};

}  // namespace tolven

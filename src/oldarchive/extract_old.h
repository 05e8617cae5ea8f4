#pragma once

#include <string>

#include "main/run/processor.h"

namespace tolven {

// Extracts or tests one archive of the older format, as the command code says. What CExtract hands an archive
// to that is none of the current format.
class CExtractOld : public CCommand {
 public:
  // `processor` must outlive the object.
  CExtractOld(CProcessor& processor, std::string archive)
      : m_processor(processor), m_archive(std::move(archive)) {}
  // Prints the result line. Throws CExcept with the flat library's number (12 for a file of neither format),
  // CChgDirExcept for the -R directory, and 59 under -V, where nothing is written and checksums are compared.
  void Execute() override;

 private:
  CProcessor& m_processor;
  std::string m_archive;
};

}  // namespace tolven

#pragma once

#include <string>
#include <utility>

#include "main/run/processor.h"

namespace tolven {

// What CType and CExtract hand an archive to that is none of the current format. Both turn the settings of
// the run into arguments of the flat library (old_reader.h) and its failures into exceptions: a CExcept with
// the library's number, 12 for a file of neither format. Every entry that succeeds counts in the run's
// statistics.
//
// Under -V such an archive has nothing to show, however sound it is, and ends with 59: an old archive put in
// place of a signed one must not pass.

// Lists one archive of the older format; under -V no name of it is shown.
class CTypeOld : public CCommand {
 public:
  // `processor` must outlive the object.
  CTypeOld(CProcessor& processor, std::string archive)
      : m_processor(processor), m_archive(std::move(archive)) {}
  void Execute() override;

 private:
  CProcessor& m_processor;
  std::string m_archive;
};

// Extracts or tests one archive of the older format, as the command code says, and prints the result line.
// Under -V nothing is written and checksums are compared.
class CExtractOld : public CCommand {
 public:
  // `processor` must outlive the object.
  CExtractOld(CProcessor& processor, std::string archive)
      : m_processor(processor), m_archive(std::move(archive)) {}
  // Throws also CChgDirExcept for the -R directory.
  void Execute() override;

 private:
  CProcessor& m_processor;
  std::string m_archive;
};

}  // namespace tolven

#pragma once

#include <string>
#include <utility>

#include "cmdline/run_services.h"

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
  // `run` must outlive the object.
  CTypeOld(IRunServices& run, std::string archive) : m_run(run), m_archive(std::move(archive)) {}
  void Execute() override;

 private:
  IRunServices& m_run;
  std::string m_archive;
};

// Extracts or tests one archive of the older format, as the command code says, and prints the result line.
// Under -V nothing is written and checksums are compared.
class CExtractOld : public CCommand {
 public:
  // `run` must outlive the object.
  CExtractOld(IRunServices& run, std::string archive) : m_run(run), m_archive(std::move(archive)) {}
  // Throws also CChgDirExcept for the -R directory.
  void Execute() override;

 private:
  IRunServices& m_run;
  std::string m_archive;
};

}  // namespace tolven

#pragma once

#include "cmdline/run_services.h"

namespace tolven {

// -M: checks a signed manifest kept outside of any archive, and the files on disk that it lists.
class CSignatureVerify : public CCommand {
 public:
  explicit CSignatureVerify(IRunServices& run) : m_run(run) {}
  void Execute() override;

 private:
  // -manifest, else the first name of the archive list.
  std::string ManifestFile() const;

  IRunServices& m_run;
};

}  // namespace tolven

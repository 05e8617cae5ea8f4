#pragma once

#include "cmdline/run_services.h"

namespace tolven {

// -l: writes the names that do not exist to "files.log". Ends with 0 whatever is missing.
class CScan : public CCommand {
 public:
  explicit CScan(IRunServices& run) : m_run(run) {}
  void Execute() override;

 private:
  bool IsPresent(const std::string& name) const;

  IRunServices& m_run;
};

}  // namespace tolven

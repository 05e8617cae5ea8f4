#pragma once

#include "main/run/command.h"
#include "main/run/processor.h"

namespace tolven {

// -l: writes the names that do not exist to "files.log". Ends with 0 whatever is missing.
class CScan : public CCommand {
 public:
  explicit CScan(CProcessor& processor) : m_processor(processor) {}
  void Execute() override;

 private:
  bool IsPresent(const std::string& name) const;

  CProcessor& m_processor;
};

}  // namespace tolven

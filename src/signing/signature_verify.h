#pragma once

#include "main/run/command.h"
#include "main/run/processor.h"

namespace tolven {

// -M: checks a signed manifest kept outside of any archive, and the files on disk that it lists.
class CSignatureVerify : public CCommand {
 public:
  explicit CSignatureVerify(CProcessor& processor) : m_processor(processor) {}
  void Execute() override;

 private:
  // -manifest, else the first name of the archive list.
  std::string ManifestFile() const;

  CProcessor& m_processor;
};

}  // namespace tolven

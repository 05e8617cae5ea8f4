#pragma once

#include "report/space_info.h"

namespace tolven {

// The real disk behind the space report.
class CDiskProbe : public IDiskProbe {
 public:
  bool Exists(const std::string& path) const override;
  bool GetSizeOfFile(const std::string& path, double& size) const override;
  double GetDiskFreeSpace(const std::string& path) const override;
  bool CmpFS(const std::string& pathA, const std::string& pathB) const override;
};

}  // namespace tolven

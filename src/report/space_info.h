#pragma once

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "report/user_info.h"

namespace tolven {

// What the space report asks the disk. The file layer implements it; tests fake a shortfall with it.
class IDiskProbe {
 public:
  virtual ~IDiskProbe() = default;
  virtual bool Exists(const std::string& path) const = 0;
  // False when there is no such file.
  virtual bool GetSizeOfFile(const std::string& path, double& size) const = 0;
  // Bytes available to unprivileged users; -1.0 when unknown.
  virtual double GetDiskFreeSpace(const std::string& path) const = 0;
  // True iff both paths lie on one file system. Throws when one cannot be examined.
  virtual bool CmpFS(const std::string& pathA, const std::string& pathB) const = 0;
};

// Answers for -ts whether an extraction of the listed entries would fit on the target file systems.
class CSpaceInfo : public CUserInfo {
 public:
  // Directory and bytes: required while entries are added, the (negative) margin once found missing.
  using Pair = std::pair<std::string, double>;

  // `probe` must outlive the object. `base`: the -R directory, "." without one.
  CSpaceInfo(const IDiskProbe& probe, std::string base);

  // Accounts `size` bytes that an extraction would write to `path`. With `replaces` the space of a file that
  // already stands there is counted as freed.
  void AddInfo(const std::string& path, double size, bool replaces);
  // The deepest existing directory on the way to `path`; false for an empty path.
  bool GetAccessiblePath(const std::string& path, std::string& result) const;
  // True iff everything fits. Pairs without enough room hold their margin afterwards.
  bool CmpSpcReqAvail() const;
  void PrintSpaceInfo(std::ostringstream& out, const Pair& pair) const;
  std::string GetInfoText() const override;

 private:
  const IDiskProbe& m_probe;
  std::string m_base;
  mutable std::vector<Pair> m_pairs;  // GetInfoText evaluates; the evaluation replaces failed sizes
};

}  // namespace tolven

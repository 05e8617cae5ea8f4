#pragma once

#include <string>
#include <unordered_set>
#include <vector>

namespace tolven {

class CDirEntry;

// Which entries of an archive a listing, test or extraction takes: all of them without names or with "*";
// else those whose stored or shown name is listed, and what lies below a listed directory entry seen earlier.
// No other wildcards; names that are never found are not reported.
class CSelection {
 public:
  explicit CSelection(const std::vector<std::string>& names);
  // Called once for each entry, in archive order.
  bool Selects(const CDirEntry& entry);
  bool SelectsAll() const { return m_all; }

 private:
  bool IsListed(const CDirEntry& entry) const;
  bool LiesBelow(const std::string& name) const;

  bool m_all;
  std::unordered_set<std::string> m_names;
  std::unordered_set<std::string> m_directories;  // selected ones, without a "/" at the end
};

}  // namespace tolven

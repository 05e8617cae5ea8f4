#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tolven {

class CDirEntry;

// Which entries of an archive a listing, test or extraction takes: all of them without names or with "*";
// else those whose stored or shown name is listed, and what lies below a listed directory entry seen earlier.
// No other wildcards; names that are never found are not reported, unless a signature lists them.
class CSelection {
 public:
  explicit CSelection(const std::vector<std::string>& names);
  // Called once for each entry, in archive order.
  bool Selects(const CDirEntry& entry);
  bool SelectsAll() const { return m_all; }
  // True iff the name, stored or shown, is listed or lies below a listed one: whether a file of a signed
  // manifest is one that the user asked for, entry or not. Never with SelectsAll.
  bool AsksFor(const std::string& stored, const std::string& shown) const;
  // How many signed entries of that stored name went by, selected or not. Counted for those it asks for.
  std::size_t Met(const std::string& stored) const;

 private:
  bool IsListed(const CDirEntry& entry) const;

  bool m_all;
  std::unordered_set<std::string> m_names;
  std::unordered_set<std::string> m_directories;  // selected ones, without a "/" at the end
  std::unordered_map<std::string, std::size_t> m_met;
};

}  // namespace tolven

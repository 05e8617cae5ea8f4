#include "archive/selection.h"

#include <algorithm>

#include "archive/dir_entry.h"

namespace tolven {

CSelection::CSelection(const std::vector<std::string>& names)
    : m_all(names.empty() || std::find(names.begin(), names.end(), "*") != names.end()),
      m_names(names.begin(), names.end()) {}

bool CSelection::Selects(const CDirEntry& entry) {
  if (m_all) return true;
  if (IsListed(entry)) {
    if (entry.IsDirectory()) {
      std::string name = entry.GetStoredName();
      if (name.ends_with('/')) name.pop_back();
      m_directories.insert(std::move(name));
    }
    return true;
  }
  return LiesBelow(entry.GetStoredName());
}

bool CSelection::IsListed(const CDirEntry& entry) const {
  for (const std::string* name : {&entry.GetStoredName(), &entry.GetName()}) {
    if (m_names.contains(*name)) return true;
    const std::size_t bar = entry.IsLink() ? name->find('|') : std::string::npos;
    if (bar != std::string::npos && m_names.contains(name->substr(0, bar))) return true;
  }
  return false;
}

bool CSelection::LiesBelow(const std::string& name) const {
  if (m_directories.empty()) return false;
  for (std::size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
    if (m_directories.contains(name.substr(0, slash))) return true;
  }
  return false;
}

}  // namespace tolven

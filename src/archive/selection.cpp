#include "archive/selection.h"

#include <algorithm>

#include "archive/dir_entry.h"

namespace tolven {

namespace {

// Whether one of `names` is a directory on the way to `name`.
bool LeadsTo(const std::unordered_set<std::string>& names, const std::string& name) {
  if (names.empty()) return false;
  for (std::size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
    if (names.contains(name.substr(0, slash))) return true;
  }
  return false;
}

}  // namespace

CSelection::CSelection(const std::vector<std::string>& names)
    : m_all(names.empty() || std::find(names.begin(), names.end(), "*") != names.end()),
      m_names(names.begin(), names.end()) {}

bool CSelection::Selects(const CDirEntry& entry) {
  if (m_all) return true;
  if (entry.DoManifestAPI() && AsksFor(entry.GetStoredName(), entry.GetName())) {
    ++m_met[entry.GetStoredName()];
  }
  if (IsListed(entry)) {
    if (entry.IsDirectory()) {
      std::string name = entry.GetStoredName();
      if (name.ends_with('/')) name.pop_back();
      m_directories.insert(std::move(name));
    }
    return true;
  }
  return LeadsTo(m_directories, entry.GetStoredName());
}

bool CSelection::IsListed(const CDirEntry& entry) const {
  for (const std::string* name : {&entry.GetStoredName(), &entry.GetName()}) {
    if (m_names.contains(*name)) return true;
    const std::size_t bar = entry.IsLink() ? name->find('|') : std::string::npos;
    if (bar != std::string::npos && m_names.contains(name->substr(0, bar))) return true;
  }
  return false;
}

bool CSelection::AsksFor(const std::string& stored, const std::string& shown) const {
  return m_names.contains(stored) || m_names.contains(shown) || LeadsTo(m_names, stored) ||
         LeadsTo(m_names, shown);
}

std::size_t CSelection::Met(const std::string& stored) const {
  const auto found = m_met.find(stored);
  return found == m_met.end() ? 0 : found->second;
}

}  // namespace tolven

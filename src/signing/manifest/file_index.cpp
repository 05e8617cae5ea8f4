#include "signing/manifest/file_index.h"

#include <algorithm>
#include <numeric>

namespace tolven {

void FileIndex::Invalidate() {
  m_order.clear();
  m_met.clear();
}

void FileIndex::Sort(std::span<const ManifestFile> files) const {
  if (m_order.size() == files.size()) return;
  m_order.resize(files.size());
  std::iota(m_order.begin(), m_order.end(), std::size_t{0});
  std::sort(m_order.begin(), m_order.end(), [files](std::size_t a, std::size_t b) {
    const int order = files[a].name.compare(files[b].name);
    return order != 0 ? order < 0 : a < b;
  });
}

std::size_t FileIndex::FirstOf(std::span<const ManifestFile> files, std::string_view name) const {
  Sort(files);
  const auto first = std::lower_bound(m_order.begin(), m_order.end(), name,
                                      [files](std::size_t place, std::string_view wanted) {
                                        return std::string_view(files[place].name) < wanted;
                                      });
  return static_cast<std::size_t>(first - m_order.begin());
}

std::size_t FileIndex::Find(std::span<const ManifestFile> files, std::string_view name, std::size_t n) const {
  const std::size_t first = FirstOf(files, name);
  if (n >= m_order.size() - first || files[m_order[first + n]].name != name) return kNone;
  return m_order[first + n];
}

std::size_t FileIndex::Meet(std::span<const ManifestFile> files, std::string_view name) {
  const std::size_t first = FirstOf(files, name);
  m_met.resize(m_order.size());
  const std::size_t n = first < m_met.size() ? m_met[first] : 0;
  const std::size_t place = Find(files, name, n);
  if (place != kNone) ++m_met[first];
  return place;
}

void FileIndex::ForgetMet() {
  m_met.clear();
}

std::size_t FileIndex::FirstUnmet(std::span<const ManifestFile> files) const {
  Sort(files);
  std::size_t unmet = kNone;
  for (std::size_t first = 0; first < m_order.size();) {
    std::size_t end = first;
    while (end < m_order.size() && files[m_order[end]].name == files[m_order[first]].name) ++end;
    const std::size_t met = first < m_met.size() ? m_met[first] : 0;
    if (met < end - first) unmet = std::min(unmet, m_order[first + met]);
    first = end;
  }
  return unmet;
}

}  // namespace tolven

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "signing/manifest/manifest.h"

namespace tolven {

// What manifest.h says of file records (looking up, passing files, comparing) has its bodies behind this
// header, because all of it goes through one index.

// Finds file records by name: the n-th record of a name, in body order. A name may stand in an archive more
// than once, and a signature that let two of its entries change places would be worth little.
//
// Files nearly always come by in the order of the body. As long as they do, a place in the body is all that
// is kept; the first one that does not has the records sorted. Forget everything whenever the records change.
class FileIndex {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  // Place of the n-th (from 0) record of that exact name, or kNone.
  std::size_t Find(const ManifestFiles& files, std::string_view name, std::size_t n) const;

  // Place of the next record of that name that was not met yet, which is met from now on; or kNone.
  std::size_t Meet(const ManifestFiles& files, std::string_view name);
  void ForgetMet();
  // Place of the first record, in body order, that was not met; or kNone.
  std::size_t FirstUnmet(const ManifestFiles& files) const;

  // Places in `files`, sorted by name and then by place.
  std::span<const std::uint32_t> Sorted(const ManifestFiles& files) const;

 private:
  // Where the records of that name begin in m_order.
  std::size_t FirstOf(const ManifestFiles& files, std::string_view name) const;
  // One past the last of the records that have the name of the one at `first` in m_order.
  std::size_t EndOf(const ManifestFiles& files, std::size_t first) const;
  // From now on, m_met has what was met.
  void LeaveBodyOrder(const ManifestFiles& files);

  mutable std::vector<std::uint32_t> m_order;  // sorted on first use only
  std::size_t m_inOrder = 0;                   // while m_met is empty: so many were met, from the first
  std::vector<std::uint32_t> m_met;            // at the first record of a name in m_order: how many were met
};

}  // namespace tolven

#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "signing/manifest/manifest.h"

namespace tolven {

// What manifest.h says of file records (looking up, passing files, comparing) has its bodies behind this
// header, because all of it goes through one index.

// Finds file records by name: the n-th record of a name, in body order. A name may stand in an archive more
// than once, and a signature that let two of its entries change places would be worth little.
class FileIndex {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  // Forgets everything; the next search sorts anew. Call it whenever the records have changed.
  void Invalidate();

  // Place of the n-th (from 0) record of that exact name, or kNone.
  std::size_t Find(std::span<const ManifestFile> files, std::string_view name, std::size_t n) const;

  // Place of the next record of that name that was not met yet, which is met from now on; or kNone.
  std::size_t Meet(std::span<const ManifestFile> files, std::string_view name);
  void ForgetMet();
  // Place of the first record, in body order, that was not met; or kNone.
  std::size_t FirstUnmet(std::span<const ManifestFile> files) const;

 private:
  void Sort(std::span<const ManifestFile> files) const;
  // Where the records of that name begin in m_order.
  std::size_t FirstOf(std::span<const ManifestFile> files, std::string_view name) const;

  // Places in `files`, sorted by name and then by place; sorted on first use only.
  mutable std::vector<std::size_t> m_order;
  std::vector<std::size_t> m_met;  // at the first record of a name in m_order: how many were met
};

}  // namespace tolven

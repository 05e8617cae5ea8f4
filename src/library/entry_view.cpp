#include "library/entry_view.h"

#include <limits>

#include "library/handle.h"
#include "report/except.h"

namespace tolven {

std::int32_t TypeOfEntry(const CDirEntry& entry) {
  if (entry.IsSignedManifest()) return TOLVEN_SIGNATURE;
  if (entry.IsLink()) return TOLVEN_LINK;
  return entry.IsDirectory() ? TOLVEN_DIRECTORY : TOLVEN_FILE;
}

std::uint64_t SizeOfEntry(const CDirEntry& entry) {
  if (entry.IsLink() || entry.IsDirectory()) return 0;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  const auto low = static_cast<std::uint64_t>(entry.Header().size);
  const std::uint64_t high = std::uint64_t{entry.Header().sizeHigh} << 32;
  return low > kMost - high ? kMost : low + high;
}

std::string NamesOf(const CDirEntry& entry) {
  std::string names = entry.GetStoredName();
  const std::size_t bar = entry.IsLink() ? names.find('|') : std::string::npos;
  if (bar != std::string::npos) names[bar] = '\0';
  return names;
}

std::string_view PathOf(std::string_view names) {
  return names.substr(0, names.find('\0'));
}

void SetNames(tolven_entry& entry, std::string_view names) {
  const std::string_view path = PathOf(names);
  entry.name = names.data();
  entry.name_size = path.size();
  if (entry.type != TOLVEN_LINK || path.size() == names.size()) return;
  entry.target = names.data() + path.size() + 1;
  entry.target_size = names.size() - path.size() - 1;
}

void GiveEntry(const tolven_entry& filled, tolven_entry& entry) {
  const std::size_t size = TakeStructure(&entry).struct_size;
  tolven_archive* const owner = entry.archive;
  std::memcpy(&entry, &filled, sizeof filled);
  entry.struct_size = size;
  entry.archive = owner;
}

CDirEntry* FirstEntry(CArchive& archive) {
  CDirEntry* entry = archive.First();
  if (entry == nullptr && !archive.IsWithoutEntries()) throw CReadExcept(archive.Name());
  return entry;
}

}  // namespace tolven

#pragma once

#include "archive/entry_factory.h"

namespace tolven {

// Makes the entries of archives that are read; knows every class of them.
class CEntryFactory : public IEntryFactory {
 public:
  bool IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                      std::span<const std::uint8_t> accessInfo) const override;
  std::unique_ptr<CDirEntry> NewEntry(EntryClass entryClass) const override;
};

}  // namespace tolven

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "archive/format.h"

namespace tolven {

class CDirEntry;

enum class EntryClass : std::size_t { kFile, kDirectory, kLink, kSignedManifest, kCount };

// Makes the entry objects of an archive that is read. The archive knows only this; the concrete classes, the
// signed manifest among them, plug in from above.
class IEntryFactory {
 public:
  virtual ~IEntryFactory() = default;
  // True iff header and stored name mark the signed manifest.
  virtual bool IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                              std::span<const std::uint8_t> accessInfo) const = 0;
  // An entry of that class, to be filled with CDirEntry::SetReadState.
  virtual std::unique_ptr<CDirEntry> NewEntry(EntryClass entryClass) const = 0;
};

}  // namespace tolven

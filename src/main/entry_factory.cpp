#include "main/entry_factory.h"

#include "signing/signed_manifest.h"

namespace tolven {

bool CEntryFactory::IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                                   std::span<const std::uint8_t> accessInfo) const {
  return CSignedManifest::IsTypeManifest(header, storedName, accessInfo);
}

std::unique_ptr<CDirEntry> CEntryFactory::NewEntry(EntryClass entryClass) const {
  switch (entryClass) {
    case EntryClass::kDirectory:
      return std::make_unique<CDirectory>();
    case EntryClass::kLink:
      return std::make_unique<CLink>();
    case EntryClass::kSignedManifest:
      return std::make_unique<CSignedManifest>();
    case EntryClass::kFile:
    case EntryClass::kCount:
      break;
  }
  return std::make_unique<CFile>();
}

}  // namespace tolven

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "tolven/archive.h"

// How an entry looks to a caller of the library.

namespace tolven {

inline constexpr std::uint32_t kSettableMode = 07777;

// TOLVEN_FILE ...
std::int32_t TypeOfEntry(const CDirEntry& entry);
// What does not fit is the largest number.
std::uint64_t SizeOfEntry(const CDirEntry& entry);
// The stored name; of a link, a zero byte in place of the bar, so that path and target are texts both.
std::string NamesOf(const CDirEntry& entry);
// Of what NamesOf returned; it stays with whoever owns it.
std::string_view PathOf(std::string_view names);
void SetNames(tolven_entry& entry, std::string_view names);

// Gives a caller as much of it as there is room for.
void GiveEntry(const tolven_entry& filled, tolven_entry& entry);

// The first entry; null for an archive that has none. CReadExcept for one that begins with something else.
CDirEntry* FirstEntry(CArchive& archive);

}  // namespace tolven

#pragma once

#include <cstdint>
#include <string>

#include "oldarchive/app_data.h"

namespace tolven {

// Settles app.scramble from the first entry with data: inversion is on when the stream header's length
// differs from the size in the entry's line and equals it once byte 0 is inverted. Later calls change
// nothing.
void DecideScramble(AppData& app);

// Decodes the data of `info` from the open archive, never reading past its compressed length nor producing
// more than its stream header declares. Every byte goes to `target` (null: nowhere) and into `checksum`, a
// CRC-32 that starts at 0 and is not inverted. `targetName` is what a failed write is reported with. False
// with message 4, 13, 36 or 37.
[[nodiscard]] bool Decompress(AppData& app, const FileInfo& info, CFileStream* target,
                              const std::string& targetName, std::uint64_t& checksum, int* error,
                              std::string* text);

}  // namespace tolven

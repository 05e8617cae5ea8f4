#pragma once

#include <cstdint>
#include <string>

#include "oldarchive/app_data.h"

namespace tolven {

// Decodes the data of `info` from the open archive, never reading past its compressed length nor producing
// more than its stream header declares. Every byte goes to `target` (null: nowhere) and into `checksum`, a
// CRC-32 that starts at 0 and is not inverted. `targetName` is what a failed write is reported with. False
// with message 4, 13, 36 or 37.
[[nodiscard]] bool Decompress(AppData& app, const FileInfo& info, CFileStream* target,
                              const std::string& targetName, std::uint64_t& checksum, int* error,
                              std::string* text);

// Walks the entries that ReadHeader left in `app`, selected ones only, in the order of the header. Command
// 'x' creates them below the current directory, any other decodes them and writes nothing. Checksums are
// compared by a test, and on extraction when app.compareChecksums is set. With app.verbose each name is
// printed.
//
// The first failure ends the walk: 0 and its message, the entry in work leaving nothing behind and what stood
// in its place untouched. Directories get their dates and modes at the end in either case.
int ExtractArchiveFiles(AppData& app, int* error, std::string* text);

}  // namespace tolven

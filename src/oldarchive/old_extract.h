#pragma once

#include <string>

#include "oldarchive/app_data.h"

namespace tolven {

// Walks the entries that ReadHeader left in `app`, selected ones only, in the order of the header. Command
// 'x' creates them below the current directory, any other decodes them and writes nothing. Checksums are
// compared by a test, and on extraction when app.compareChecksums is set. With app.verbose each name is
// printed.
//
// The first failure ends the walk: 0 and its message, the entry in work leaving nothing behind and what stood
// in its place untouched. Directories get their dates and modes at the end in either case.
int ExtractArchiveFiles(AppData& app, int* error, std::string* text);

}  // namespace tolven

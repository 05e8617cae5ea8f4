#pragma once

#include <cstdint>
#include <string>

#include "oldarchive/app_data.h"

namespace tolven {

// Reader of archives of the older format, as a flat library: every function returns nonzero on success and 0
// on failure, with the number of the failure in `error` and its message (without a prefix) in `text`; both
// may be null. Nothing is thrown. What is to be seen is printed through the current log manager. The numbers
// are those of old_messages.h, the arguments those of GetOptions (old_options.h); argv[0] is skipped.
//
// 't' lists, 'd' decodes and compares checksums, 'x' extracts below the current directory or that of the R
// option. With the letter 's' the space needed is reported, and nothing is extracted. Nothing here makes
// archives: 'c' is checked like the others, then fails with message 11.

// Runs the older tool's command line.
int iaxxorvl_ORV(int argc, const char* const* argv, int* error, std::string* text);

// The same, calling `callback` (may be null) with `userData` for each entry that succeeded. A list of
// archives, or a name with "*" or "?", runs iaxxorvl_ORV_Callback2 once per archive and ends with the first
// that fails.
int iaxxorvl_ORV_Callback(int argc, const char* const* argv, OrvCallback callback, void* userData, int* error,
                          std::string* text);

// One archive: `archiveName`, or the one in the arguments when it is null.
int iaxxorvl_ORV_Callback2(int argc, const char* const* argv, OrvCallback callback, void* userData,
                           const char* archiveName, int* error, std::string* text);

// Entry points that extract and nothing else: any command but 'x' is message 23.
int iaxxorvl_ORV_Extract(int argc, const char* const* argv, int* error, std::string* text);
int iaxxorvl_ExtractArchive(int argc, const char* const* argv, OrvCallback callback, void* userData,
                            int* error, std::string* text);

// The sum of the sizes of all entries, in bytes, as the header states them.
int iaxxorvl_UncomprArchiveBytes(const char* archiveName, std::uint64_t* size, int* error, std::string* text);

}  // namespace tolven

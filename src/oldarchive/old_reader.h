#pragma once

#include <cstdint>
#include <string>

#include "oldarchive/old_messages.h"

namespace tolven {

// Reader of archives of the older format, as a flat library.
//
// Every function returns nonzero on success and 0 on failure. Then `error` receives one of the numbers of
// OldCode and `text` its message, without the program's prefix; either may be null, and on success both stay
// as they were. Nothing is thrown: want of memory is OLD_MEMORY. Arguments are only read, and nothing of them
// is kept after the call. What is to be seen is printed through the current log manager.
//
// The arguments are those of GetOptions (old_options.h); argv[0] is skipped. 't' lists, 'd' decodes and
// compares checksums, 'x' extracts below the current directory or that of the R option. With the letter 's'
// the space needed is reported, and nothing is extracted. Nothing here makes archives: 'c' is checked like
// the others, then fails with OLD_COMPRESS.
//
// An extraction ends with the first entry that fails. That entry leaves nothing behind, those before it stay.

enum class OrvEvent {
  kHeaderRead,  // the archive's header is a good one; the name is the archive's
  kEntryDone,   // an entry was listed, tested or extracted; the name is the one on disk
};
// Called during a run. The name is lent for the call. Must not throw.
using OrvCallback = void (*)(OrvEvent event, const char* name, void* userData);

// Runs the older tool's command line: iaxxorvl_ORV_Callback without a callback.
int iaxxorvl_ORV(int argc, const char* const* argv, int* error, std::string* text);

// The same, telling `callback` (may be null) with `userData`. A list of archives, or a name with "*" or "?",
// runs iaxxorvl_ORV_Callback2 once per archive and ends with the first that fails.
int iaxxorvl_ORV_Callback(int argc, const char* const* argv, OrvCallback callback, void* userData, int* error,
                          std::string* text);

// One archive: `archiveName`, or the one in the arguments when it is null. No commas or patterns are looked
// for in it.
int iaxxorvl_ORV_Callback2(int argc, const char* const* argv, OrvCallback callback, void* userData,
                           const char* archiveName, int* error, std::string* text);

// Entry points that extract and nothing else: any command but 'x' is OLD_NO_COMMAND.
int iaxxorvl_ORV_Extract(int argc, const char* const* argv, int* error, std::string* text);
int iaxxorvl_ExtractArchive(int argc, const char* const* argv, OrvCallback callback, void* userData,
                            int* error, std::string* text);

// Sets `size` to the sum of the sizes of all entries, in bytes, as the header states them; on failure it
// stays as it was. OLD_HEADER_FORMAT also for a sum beyond 64 bits.
int iaxxorvl_UncomprArchiveBytes(const char* archiveName, std::uint64_t* size, int* error, std::string* text);

}  // namespace tolven

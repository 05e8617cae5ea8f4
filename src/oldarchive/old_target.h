#pragma once

#include <string>

#include "fileio/pending_file.h"
#include "oldarchive/app_data.h"

namespace tolven {

// Makes the parents and the temporary file. False with message 1, 2 or 29; `path` is its argument.
[[nodiscard]] bool CreateTarget(CPendingFile& file, const std::string& path, int* error, std::string* text);

// Gives the file mode, date and name. False with message 4, 15, 16 or 29.
[[nodiscard]] bool CommitTarget(CPendingFile& file, const FileInfo& info, const std::string& path, int* error,
                                std::string* text);

// The message for a directory that could not be made: 1, or 2 when its name is too long. Reads errno.
bool DirectoryFailure(const std::string& directory, int* error, std::string* text);

}  // namespace tolven

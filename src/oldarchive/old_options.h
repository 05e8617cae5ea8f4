#pragma once

#include <string>
#include <vector>

#include "oldarchive/app_data.h"

namespace tolven {

// Fills `app` from an argument vector of the older tool, argv[0] being the program:
//   LETTERS [-flat] [-lower] [-xnopvalid] [-h] [-P] [-p OCTAL] [-f ARCHIVE] [-C DIR] [-A FILE] [-X FILE]
//           [-T FILE] [-R DIR] [NAME ...] [-- NAME ...]
// LETTERS begin with the command ('c', 'x', 't', 'd'; a '-' in front is allowed), further ones are 'v'
// verbose, 'g' ignore the case of the archive's name, 's' report the space needed, 'V' compare checksums, 'P'
// absolute names, and 'f', whose name is the next argument. -lower, -xnopvalid and -h are the program's own:
// names in lower case, names that may leave the extraction directory, directories that were there keep their
// modes. Names behind "--" are taken as they are, the others are normalised. Options that only matter when an
// archive is made are checked, then reported as ignored. False with message 6, 7, 20 to 30, 33 or 35.
[[nodiscard]] bool GetOptions(int argc, const char* const* argv, AppData& app, int* error, std::string* text);

// Adds the names of the include file, one a line, to app.names. Empty lines and lines that begin with '#' are
// skipped. False with message 4 or 9.
[[nodiscard]] bool DoAOption(AppData& app, int* error, std::string* text);

// Tells the user that `option` has no effect on an archive of the older format.
void printIgnoredOptionWarning(const std::string& option);

// Takes the commas out of an option value: a list of one archive is written with one behind it.
std::string eraseCommas(const std::string& value);

// The archives that the -f text of `argv` stands for: names separated by commas, "*" and "?" in a last
// component (and, with the letter 'g', case) looked up on disk. Empty without a list and without a pattern.
[[nodiscard]] bool ListArchives(int argc, const char* const* argv, std::vector<std::string>& archives,
                                int* error, std::string* text);

}  // namespace tolven

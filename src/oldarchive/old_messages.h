#pragma once

#include <string>

namespace tolven {

// The older reader's own error numbers. They end up as exit codes: never renumber. Some belong to the making
// of archives, which only the checks of the options still know.
enum OldCode : int {
  OLD_MKDIR = 1,
  OLD_DIR_TOO_LONG = 2,
  OLD_FILENAME = 3,
  OLD_SYSTEM = 4,  // the text is the argument and the system's reason
  OLD_MEMORY = 5,
  OLD_NULL_PARAMETER = 6,
  OLD_PERMISSION_VALUE = 7,
  OLD_EXCLUDE_FORMAT = 8,
  OLD_INCLUDE_FORMAT = 9,
  OLD_RENAME_FORMAT = 10,
  OLD_COMPRESS = 11,
  OLD_HEADER_FORMAT = 12,
  OLD_DECOMPRESS = 13,
  OLD_CHECKSUM = 14,
  OLD_FILE_MODE = 15,
  OLD_FILE_DATE = 16,
  OLD_DIR_MODE = 17,
  OLD_DIR_DATE = 18,
  OLD_GETCWD = 19,
  OLD_OPTION_TWICE = 20,
  OLD_OPTION_WITHOUT_NAME = 21,
  OLD_OPTION_UNKNOWN = 22,
  OLD_NO_COMMAND = 23,
  OLD_C_WITH_P = 24,
  OLD_C_NEEDS_CREATE = 25,
  OLD_T_NEEDS_CREATE = 26,
  OLD_X_NEEDS_CREATE = 27,
  OLD_P_NOT_OCTAL = 28,
  OLD_OPEN_TARGET = 29,
  OLD_NO_FILENAMES = 30,
  OLD_R_NEEDS_EXTRACT = 33,
  OLD_S_NEEDS_READING = 35,
  OLD_TOO_LARGE = 36,
  OLD_CUT_ARCHIVE = 37,
  OLD_TIMESTAMP = 100,   // takes no argument
  OLD_TARGET_DIR = 101,  // the directory of the R option cannot be entered
};

// Hands back `code` and its message: the text of the table, one blank, `argument` (when there is one), and
// for failed system calls ": " and the reason. `systemError` is the errno of the failure, 0 for one that left
// none. Either out argument may be null. Always false, so that a caller can fail with its result.
bool SetErrorMessage(int* error, std::string* text, int code, const std::string& argument,
                     int systemError = 0);

}  // namespace tolven

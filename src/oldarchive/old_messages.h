#pragma once

#include <string>

namespace tolven {

// The older reader's own error numbers. They end up as exit codes: never renumber.
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
  OLD_TIMESTAMP = 100,  // takes no argument
};

// Hands back `code` and its message: the text of the table, one blank, `argument` (when there is one), and
// for failed system calls ": " and the text of errno, which must still be that of the failure. Either out
// argument may be null. Always false, so that a caller can fail with its result.
bool SetErrorMessage(int* error, std::string* text, int code, const std::string& argument);

// Runs `body` and returns what it returns (1 or 0). Nothing may be thrown through the flat functions, and
// inside them only containers throw, for want of memory: that is a message as well.
template <typename Body>
int WithoutExceptions(int* error, std::string* text, Body body) {
  try {
    return body() ? 1 : 0;
  } catch (...) {
    // Copying the message may need memory too; the code alone must always get out.
    if (error != nullptr) *error = OLD_MEMORY;
    try {
      SetErrorMessage(error, text, OLD_MEMORY, std::string());
    } catch (...) {
      if (text != nullptr) text->clear();
    }
    return 0;
  }
}

}  // namespace tolven

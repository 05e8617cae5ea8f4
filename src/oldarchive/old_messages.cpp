#include "oldarchive/old_messages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "report/show_text.h"

namespace tolven {
namespace {

enum class Reason {
  kNone,
  kKnown,   // the system's, when the failure left one
  kAlways,  // nothing but a reason: a short read or write without a number is an input/output error to the
            // user
};

struct MessageRow {
  int code;
  std::string_view text;
  Reason reason;
};

// Scripts read these texts: they stay as they are. Numbers without a row were never given out.
constexpr std::string_view kCutArchive =
    "Archive seems to be corrupt (more bytes requested for decompress than are left in the archive); archive "
    "is";

constexpr std::array kMessages = {
    MessageRow{OLD_MKDIR, "can't create directory", Reason::kKnown},
    MessageRow{OLD_DIR_TOO_LONG, "directory name is too long:", Reason::kNone},
    MessageRow{OLD_FILENAME, "can't create filename for", Reason::kNone},
    MessageRow{OLD_SYSTEM, "", Reason::kAlways},
    MessageRow{OLD_MEMORY, "can't allocate memory", Reason::kNone},
    MessageRow{OLD_NULL_PARAMETER, "needed parameter is null", Reason::kNone},
    MessageRow{OLD_PERMISSION_VALUE, "can't use permission", Reason::kNone},
    MessageRow{OLD_EXCLUDE_FORMAT, "format error in exclude-file (X-option)", Reason::kNone},
    MessageRow{OLD_INCLUDE_FORMAT, "format error in include-file (A-option)", Reason::kNone},
    MessageRow{OLD_RENAME_FORMAT, "format error in include-file (T-option)", Reason::kNone},
    MessageRow{OLD_COMPRESS, "can't compress", Reason::kNone},
    MessageRow{OLD_HEADER_FORMAT, "format error in header", Reason::kNone},
    MessageRow{OLD_DECOMPRESS, "can't decompress", Reason::kNone},
    MessageRow{OLD_CHECKSUM, "checksum error", Reason::kNone},
    MessageRow{OLD_FILE_MODE, "can't change permission of file", Reason::kKnown},
    MessageRow{OLD_FILE_DATE, "can't change date of file", Reason::kKnown},
    MessageRow{OLD_DIR_MODE, "can't change permission of directory", Reason::kKnown},
    MessageRow{OLD_DIR_DATE, "can't change date of directory", Reason::kKnown},
    MessageRow{OLD_GETCWD, "can't query current working directory", Reason::kKnown},
    MessageRow{OLD_OPTION_TWICE, "use option only once", Reason::kNone},
    MessageRow{OLD_OPTION_WITHOUT_NAME, "option without filename specified", Reason::kNone},
    MessageRow{OLD_OPTION_UNKNOWN, "option unknown", Reason::kNone},
    MessageRow{OLD_NO_COMMAND, "first specify the command", Reason::kNone},
    MessageRow{OLD_C_WITH_P, "don't use C-option together with P-option", Reason::kNone},
    MessageRow{OLD_C_NEEDS_CREATE, "use C-option only with create", Reason::kNone},
    MessageRow{OLD_T_NEEDS_CREATE, "use T-option only with create", Reason::kNone},
    MessageRow{OLD_X_NEEDS_CREATE, "use X-option only with create", Reason::kNone},
    MessageRow{OLD_P_NOT_OCTAL, "p-options needs an octal value", Reason::kNone},
    MessageRow{OLD_OPEN_TARGET, "can't open for writing:", Reason::kKnown},
    MessageRow{OLD_NO_FILENAMES, "no filename(s) specified", Reason::kNone},
    MessageRow{OLD_R_NEEDS_EXTRACT, "use R-option only with extract", Reason::kNone},
    MessageRow{OLD_S_NEEDS_READING, "use s-option only with extract or list content", Reason::kNone},
    MessageRow{OLD_TOO_LARGE, "file is larger than 2 GB", Reason::kNone},
    MessageRow{OLD_CUT_ARCHIVE, kCutArchive, Reason::kNone},
    MessageRow{OLD_TIMESTAMP, "timestamp conversion failed!", Reason::kNone},
    MessageRow{OLD_TARGET_DIR, "can't change to directory", Reason::kKnown},
};

static_assert(std::is_sorted(kMessages.begin(), kMessages.end(),
                             [](const MessageRow& a, const MessageRow& b) { return a.code < b.code; }));

}  // namespace

bool SetErrorMessage(int* error, std::string* text, int code, const std::string& argument, int systemError) {
  const auto row = std::find_if(kMessages.begin(), kMessages.end(),
                                [code](const MessageRow& candidate) { return candidate.code == code; });
  if (error != nullptr) *error = code;
  if (text == nullptr || row == kMessages.end()) return false;

  *text = row->text;
  if (!argument.empty()) {
    if (!text->empty()) *text += ' ';
    *text += ShowText(argument);
  }
  if (row->reason == Reason::kAlways && systemError == 0) systemError = EIO;
  if (row->reason != Reason::kNone && systemError != 0) {
    *text += (text->empty() ? "" : ": ") + std::string(std::strerror(systemError));
  }
  return false;
}

}  // namespace tolven

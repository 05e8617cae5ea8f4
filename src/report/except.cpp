#include "report/except.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "report/run_status.h"
#include "report/show_text.h"
#include "report/system_error.h"

namespace tolven {
namespace {

// What follows the message: nothing, " (error N). ", or that and the system text.
enum class Suffix { kNone, kCode, kSystem };

// A row whose number is the system's error number plus 100.
constexpr int kErrnoPlus100 = -1;
constexpr int kErrnoBase = 100;
// A row that leaves the exit code as it is.
constexpr int kKeepsExitCode = 0;

struct RowText {
  const char* prefix;
  const char* tail;  // behind the argument
  int number;
  Suffix suffix;
};

// The texts are read by scripts: blanks, or their absence, stay as they are.
constexpr std::array kRows = {
    RowText{"TOLVEN: unsupported archive: ", "", 1, Suffix::kNone},
    RowText{"TOLVEN: can not create directory ", "", 3, Suffix::kSystem},
    RowText{"TOLVEN: error writing to ", "", 4, Suffix::kSystem},
    RowText{"TOLVEN: error reading from ", "", 5, Suffix::kCode},
    RowText{"TOLVEN: error opening ", "", 6, Suffix::kSystem},
    RowText{"TOLVEN: error compressing ", "", 9, Suffix::kNone},
    RowText{"TOLVEN: error decompressing ", "", 11, Suffix::kNone},
    RowText{"TOLVEN: checksum error in ", "", 12, Suffix::kNone},
    RowText{"TOLVEN: can not set permissions for ", "", 13, Suffix::kSystem},
    RowText{"TOLVEN: can not change date for ", "", 14, Suffix::kSystem},
    RowText{"TOLVEN: can not get working directory ", "", 17, Suffix::kSystem},
    RowText{"TOLVEN: error determining disk space for ", "", 30, Suffix::kNone},
    RowText{"TOLVEN: can not read link ", "", 35, Suffix::kSystem},
    RowText{"TOLVEN: can not create softlink ", "", 36, Suffix::kSystem},
    RowText{"TOLVEN: could not convert ", " to UTF8.", 47, Suffix::kNone},
    RowText{"TOLVEN: could not convert from UTF8 string", "", 47, Suffix::kNone},
    RowText{"TOLVEN: setting file attributes failed for", "", 48, Suffix::kSystem},
    RowText{"TOLVEN: adding privileges failed.", "", 49, Suffix::kNone},
    RowText{"TOLVEN: invalid file handle specified", "", 50, Suffix::kNone},
    RowText{"TOLVEN: could not get position of file pointer.", "", 51, Suffix::kSystem},
    RowText{"TOLVEN: could not set position of file pointer.", "", 52, Suffix::kSystem},
    RowText{"TOLVEN: can not change to dir ", "", kErrnoPlus100, Suffix::kSystem},
    RowText{"TOLVEN: stat() failed for ", "", kErrnoPlus100, Suffix::kSystem},
    RowText{"TOLVEN: access() failed for ", "", kErrnoPlus100, Suffix::kSystem},
    RowText{"TOLVEN: invalid archive ", "", kKeepsExitCode, Suffix::kNone},
};

}  // namespace

// In the order of kRows.
enum class CExcept::Row : int {
  kUnsupportedArchive,
  kCreateDir,
  kWrite,
  kRead,
  kOpen,
  kComp,
  kDecomp,
  kChecksum,
  kChgMod,
  kChgDate,
  kGetCwd,
  kDiskSpace,
  kReadLink,
  kCreateLnk,
  kConversion,
  kConversionFrom,
  kSetFileAttr,
  kAddPrivilege,
  kInvalidHandle,
  kGetFilePos,
  kSetFilePointer,
  kChgDir,
  kStat,
  kAccess,
  kInval,
  kCount,
};

CExcept::CExcept(const std::string& msg, int number, bool withSystemText) : m_number(number) {
  const int systemError = errno;
  m_msg = msg;
  NotifyProcessor(number);
  errno = systemError;
  if (withSystemText) {
    AddErrnoText();
  } else {
    AddErrorCode();
  }
}

CExcept::CExcept(const std::string& msg) : CExcept(msg, 100, true) {}

CExcept::CExcept(Row row, const std::string& argument) {
  static_assert(kRows.size() == static_cast<std::size_t>(Row::kCount));
  const int systemError = errno;
  const RowText& text = kRows[static_cast<std::size_t>(row)];
  m_number = text.number == kErrnoPlus100 ? systemError + kErrnoBase : text.number;
  m_msg = text.prefix + argument + text.tail;
  if (m_number != kKeepsExitCode) NotifyProcessor(m_number);
  errno = systemError;
  if (text.suffix == Suffix::kCode) AddErrorCode();
  if (text.suffix == Suffix::kSystem) AddErrnoText();
}

CExcept::CExcept(Complete complete) : m_msg(std::move(complete.msg)), m_number(complete.number) {
  NotifyProcessor(m_number);
}

void CExcept::NotifyProcessor(int code) {
  RunStatus::Current().exitCode = code;
}

void CExcept::AddErrorCode() {
  m_msg += " (error " + std::to_string(m_number) + "). ";
}

void CExcept::AddErrnoText() {
  const std::string systemText = SystemErrorText();
  AddErrorCode();
  m_msg += systemText;
}

#define TOLVEN_EXCEPT(NAME, ROW) \
  NAME::NAME(const std::string& argument) : CExcept(Row::ROW, ShowText(argument)) {}
#define TOLVEN_EXCEPT_PLAIN(NAME, ROW) \
  NAME::NAME() : CExcept(Row::ROW, std::string()) {}

TOLVEN_EXCEPT(CCreateDirExcept, kCreateDir)
TOLVEN_EXCEPT(CWriteExcept, kWrite)
TOLVEN_EXCEPT(CReadExcept, kRead)
TOLVEN_EXCEPT(COpenExcept, kOpen)
TOLVEN_EXCEPT(CCompExcept, kComp)
TOLVEN_EXCEPT(CDecompExcept, kDecomp)
TOLVEN_EXCEPT(CChecksumExcept, kChecksum)
TOLVEN_EXCEPT(CChgModExcept, kChgMod)
TOLVEN_EXCEPT(CChgDateExcept, kChgDate)
TOLVEN_EXCEPT_PLAIN(CGetCwdExcept, kGetCwd)
TOLVEN_EXCEPT(CDiskSpaceExcept, kDiskSpace)
TOLVEN_EXCEPT(CReadLinkExcept, kReadLink)
TOLVEN_EXCEPT(CCreateLnkExcept, kCreateLnk)
TOLVEN_EXCEPT(CSetFileAttrExcept, kSetFileAttr)
TOLVEN_EXCEPT(CAddPrivilegeExcept, kAddPrivilege)
TOLVEN_EXCEPT_PLAIN(CInvalidHandle, kInvalidHandle)
TOLVEN_EXCEPT_PLAIN(CGetFilePosExcept, kGetFilePos)
TOLVEN_EXCEPT_PLAIN(CSetFilePointerExcept, kSetFilePointer)
TOLVEN_EXCEPT(CChgDirExcept, kChgDir)
TOLVEN_EXCEPT(CStatExcept, kStat)
TOLVEN_EXCEPT(CAccessExcept, kAccess)
TOLVEN_EXCEPT(CInvalExcept, kInval)

#undef TOLVEN_EXCEPT
#undef TOLVEN_EXCEPT_PLAIN

CUnsupportedArchiveException::CUnsupportedArchiveException(const std::string& argument)
    : CExcept(Row::kUnsupportedArchive, argument) {}

CConversionExcept::CConversionExcept(const std::string& argument)
    : CExcept(argument.empty() ? Row::kConversionFrom : Row::kConversion, ShowText(argument)) {}

}  // namespace tolven

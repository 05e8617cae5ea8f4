#include "report/except.h"

#include <array>
#include <cstddef>
#include <utility>

#include "report/error_numbers.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {
namespace {

// What follows the message: nothing, " (error N). ", or that and the system text.
enum class Suffix { kNone, kCode, kSystem };

// A row whose number is the system's, plus 100.
constexpr int kSystemNumber = -1;
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
    RowText{"TOLVEN: unsupported archive: ", "", kErrorUnsupported, Suffix::kNone},
    RowText{"TOLVEN: can not create directory ", "", kErrorCreateDir, Suffix::kSystem},
    RowText{"TOLVEN: error writing to ", "", kErrorWrite, Suffix::kSystem},
    RowText{"TOLVEN: error reading from ", "", kErrorRead, Suffix::kCode},
    RowText{"TOLVEN: error opening ", "", kErrorOpen, Suffix::kSystem},
    RowText{"TOLVEN: error compressing ", "", kErrorCompress, Suffix::kNone},
    RowText{"TOLVEN: error decompressing ", "", kErrorDecompress, Suffix::kNone},
    RowText{"TOLVEN: checksum error in ", "", kErrorChecksum, Suffix::kNone},
    RowText{"TOLVEN: can not set permissions for ", "", kErrorSetMode, Suffix::kSystem},
    RowText{"TOLVEN: can not change date for ", "", kErrorSetDate, Suffix::kSystem},
    RowText{"TOLVEN: can not get working directory ", "", kErrorWorkingDirectory, Suffix::kSystem},
    RowText{"TOLVEN: error determining disk space for ", "", kErrorDiskSpace, Suffix::kNone},
    RowText{"TOLVEN: can not read link ", "", kErrorReadLink, Suffix::kSystem},
    RowText{"TOLVEN: can not create softlink ", "", kErrorLink, Suffix::kSystem},
    RowText{"TOLVEN: could not convert ", " to UTF8.", kErrorConversion, Suffix::kNone},
    RowText{"TOLVEN: could not convert from UTF8 string", "", kErrorConversion, Suffix::kNone},
    RowText{"TOLVEN: setting file attributes failed for", "", kErrorAttributes, Suffix::kSystem},
    RowText{"TOLVEN: adding privileges failed.", "", kErrorPrivilege, Suffix::kNone},
    RowText{"TOLVEN: invalid file handle specified", "", kErrorHandle, Suffix::kNone},
    RowText{"TOLVEN: could not get position of file pointer.", "", kErrorGetPosition, Suffix::kSystem},
    RowText{"TOLVEN: could not set position of file pointer.", "", kErrorSetPosition, Suffix::kSystem},
    RowText{"TOLVEN: can not change to dir ", "", kSystemNumber, Suffix::kSystem},
    RowText{"TOLVEN: stat() failed for ", "", kSystemNumber, Suffix::kSystem},
    RowText{"TOLVEN: access() failed for ", "", kSystemNumber, Suffix::kSystem},
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

CExcept::CExcept(const std::string& msg, int number, SystemError error) : m_msg(msg), m_number(number) {
  NotifyProcessor(number);
  AddErrnoText(error);
}

CExcept::CExcept(const std::string& msg, SystemError error) : CExcept(msg, kErrorOther, error) {}

CExcept::CExcept(Row row, const std::string& argument, SystemError error) {
  static_assert(kRows.size() == static_cast<std::size_t>(Row::kCount));
  const RowText& text = kRows[static_cast<std::size_t>(row)];
  m_number = text.number == kSystemNumber ? error.number + kErrorSystemBase : text.number;
  m_msg = text.prefix + argument + text.tail;
  if (m_number != kKeepsExitCode) NotifyProcessor(m_number);
  if (text.suffix == Suffix::kCode) AddErrorCode();
  if (text.suffix == Suffix::kSystem) AddErrnoText(error);
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

void CExcept::AddErrnoText(SystemError error) {
  AddErrorCode();
  m_msg += SystemErrorText(error);
}

#define TOLVEN_EXCEPT(NAME, ROW) \
  NAME::NAME(const std::string& argument) : CExcept(Row::ROW, ShowText(argument)) {}
#define TOLVEN_EXCEPT_PLAIN(NAME, ROW) \
  NAME::NAME() : CExcept(Row::ROW, std::string()) {}
#define TOLVEN_EXCEPT_SYSTEM(NAME, ROW) \
  NAME::NAME(const std::string& argument, SystemError error) : CExcept(Row::ROW, ShowText(argument), error) {}
#define TOLVEN_EXCEPT_SYSTEM_PLAIN(NAME, ROW) \
  NAME::NAME(SystemError error) : CExcept(Row::ROW, std::string(), error) {}

TOLVEN_EXCEPT_SYSTEM(CCreateDirExcept, kCreateDir)
TOLVEN_EXCEPT_SYSTEM(CWriteExcept, kWrite)
TOLVEN_EXCEPT(CReadExcept, kRead)
TOLVEN_EXCEPT_SYSTEM(COpenExcept, kOpen)
TOLVEN_EXCEPT(CCompExcept, kComp)
TOLVEN_EXCEPT(CDecompExcept, kDecomp)
TOLVEN_EXCEPT(CChecksumExcept, kChecksum)
TOLVEN_EXCEPT_SYSTEM(CChgModExcept, kChgMod)
TOLVEN_EXCEPT_SYSTEM(CChgDateExcept, kChgDate)
TOLVEN_EXCEPT_SYSTEM_PLAIN(CGetCwdExcept, kGetCwd)
TOLVEN_EXCEPT(CDiskSpaceExcept, kDiskSpace)
TOLVEN_EXCEPT_SYSTEM(CReadLinkExcept, kReadLink)
TOLVEN_EXCEPT_SYSTEM(CCreateLnkExcept, kCreateLnk)
TOLVEN_EXCEPT_SYSTEM(CSetFileAttrExcept, kSetFileAttr)
TOLVEN_EXCEPT(CAddPrivilegeExcept, kAddPrivilege)
TOLVEN_EXCEPT_PLAIN(CInvalidHandle, kInvalidHandle)
TOLVEN_EXCEPT_SYSTEM_PLAIN(CGetFilePosExcept, kGetFilePos)
TOLVEN_EXCEPT_SYSTEM_PLAIN(CSetFilePointerExcept, kSetFilePointer)
TOLVEN_EXCEPT_SYSTEM(CChgDirExcept, kChgDir)
TOLVEN_EXCEPT_SYSTEM(CStatExcept, kStat)
TOLVEN_EXCEPT_SYSTEM(CAccessExcept, kAccess)
TOLVEN_EXCEPT(CInvalExcept, kInval)

#undef TOLVEN_EXCEPT
#undef TOLVEN_EXCEPT_PLAIN
#undef TOLVEN_EXCEPT_SYSTEM
#undef TOLVEN_EXCEPT_SYSTEM_PLAIN

CUnsupportedArchiveException::CUnsupportedArchiveException(const std::string& argument)
    : CExcept(Row::kUnsupportedArchive, argument) {}

CConversionExcept::CConversionExcept(const std::string& argument)
    : CExcept(argument.empty() ? Row::kConversionFrom : Row::kConversion, ShowText(argument)) {}

}  // namespace tolven

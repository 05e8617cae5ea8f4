#pragma once

#include <string>

#include "report/user_info.h"

namespace tolven {

// The one way failures are reported. The constructor composes the final message and writes the exit code into
// the current RunStatus, whether or not the exception is ever printed; copies write nothing. errno is read
// when the object is made: construct it right after the failing call, and set errno to 0 first when none
// failed.
class CExcept : public CUserInfo {
 public:
  // `withSystemText` appends " (error N). " and the system text, else " (error N). " alone.
  CExcept(const std::string& msg, int number, bool withSystemText);
  // Number 100, with system text.
  explicit CExcept(const std::string& msg);

  std::string GetInfoText() const override { return m_msg; }
  const std::string& GetMsg() const { return m_msg; }
  int GetNumber() const { return m_number; }

  // Sets the exit code without an exception.
  static void NotifyProcessor(int code);

 protected:
  // Identifies a row of the table of texts and numbers in except.cpp.
  enum class Row : int;
  CExcept(Row row, const std::string& argument);
  // A message that is already complete.
  struct Complete {
    std::string msg;
    int number;
  };
  explicit CExcept(Complete complete);

  void AddErrorCode();
  void AddErrnoText();

  std::string m_msg;
  int m_number;
};

// Each class is a row of the table: prefix + argument, a number, and what is appended. Arguments are shown by
// ShowText, but for the first, which may be a sentence with a line break of its own.
#define TOLVEN_EXCEPT(NAME)                     \
  class NAME : public CExcept {                 \
   public:                                      \
    explicit NAME(const std::string& argument); \
  }
#define TOLVEN_EXCEPT_PLAIN(NAME) \
  class NAME : public CExcept {   \
   public:                        \
    NAME();                       \
  }

TOLVEN_EXCEPT(CUnsupportedArchiveException);  // archive, shown already: 1
TOLVEN_EXCEPT(CCreateDirExcept);              // directory: 3
TOLVEN_EXCEPT(CWriteExcept);                  // file: 4
TOLVEN_EXCEPT(CReadExcept);                   // file: 5
TOLVEN_EXCEPT(COpenExcept);                   // file: 6
TOLVEN_EXCEPT(CCompExcept);                   // file: 9
TOLVEN_EXCEPT(CDecompExcept);                 // file: 11
TOLVEN_EXCEPT(CChecksumExcept);               // file: 12
TOLVEN_EXCEPT(CChgModExcept);                 // file: 13
TOLVEN_EXCEPT(CChgDateExcept);                // file: 14
TOLVEN_EXCEPT_PLAIN(CGetCwdExcept);           // 17
TOLVEN_EXCEPT(CDiskSpaceExcept);              // path: 30
TOLVEN_EXCEPT(CReadLinkExcept);               // link: 35
TOLVEN_EXCEPT(CCreateLnkExcept);              // link: 36
TOLVEN_EXCEPT(CConversionExcept);             // text, may be empty: 47
TOLVEN_EXCEPT(CSetFileAttrExcept);            // file: 48
TOLVEN_EXCEPT(CAddPrivilegeExcept);           // text: 49
TOLVEN_EXCEPT_PLAIN(CInvalidHandle);          // 50
TOLVEN_EXCEPT_PLAIN(CGetFilePosExcept);       // 51
TOLVEN_EXCEPT_PLAIN(CSetFilePointerExcept);   // 52
TOLVEN_EXCEPT(CChgDirExcept);                 // directory: errno + 100
TOLVEN_EXCEPT(CStatExcept);                   // file: errno + 100
TOLVEN_EXCEPT(CAccessExcept);                 // file: errno + 100
TOLVEN_EXCEPT(CInvalExcept);                  // archive: 0, and the exit code stays as it is

#undef TOLVEN_EXCEPT
#undef TOLVEN_EXCEPT_PLAIN

// A signature that does not verify: 60. `rc` is the cryptographic library's return code.
class CInvalSignatureExcept : public CExcept {
 public:
  CInvalSignatureExcept(const std::string& detail, int rc);
};

// Everything else about signed manifests: 54 to 61, chosen by the manifest library's code.
class CInvalManifestExcept : public CExcept {
 public:
  CInvalManifestExcept(const std::string& detail, int manifestRc, int cryptoRc);
};

}  // namespace tolven

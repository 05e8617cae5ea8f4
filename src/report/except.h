#pragma once

#include <string>

#include "report/system_error.h"
#include "report/user_info.h"

namespace tolven {

// The one way failures are reported. The constructor composes the final message and writes the exit code into
// the current RunStatus, whether or not the exception is ever printed; copies write nothing. Where a message
// may end in the system's words, the system error it speaks of is an argument; nothing looks at errno.
class CExcept : public CUserInfo {
 public:
  // Appends " (error N). " and the text of the system error, if there is one.
  CExcept(const std::string& msg, int number, SystemError error = kNoSystemError);
  // Number 100.
  CExcept(const std::string& msg, SystemError error);

  std::string GetInfoText() const override { return m_msg; }
  const std::string& GetMsg() const { return m_msg; }
  int GetNumber() const { return m_number; }

  // Sets the exit code without an exception.
  static void NotifyProcessor(int code);

 protected:
  // Identifies a row of the table of texts and numbers in except.cpp.
  enum class Row : int;
  CExcept(Row row, const std::string& argument, SystemError error = kNoSystemError);
  // A message that is already complete.
  struct Complete {
    std::string msg;
    int number;
  };
  explicit CExcept(Complete complete);

  void AddErrorCode();
  void AddErrnoText(SystemError error);

  std::string m_msg;
  int m_number;
};

// Each class is a row of the table: prefix + argument, a number, and what is appended. Arguments are shown by
// ShowText, but for the first, which may be a sentence with a line break of its own. Those of a failed system
// call take its error.
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
#define TOLVEN_EXCEPT_SYSTEM(NAME)                        \
  class NAME : public CExcept {                           \
   public:                                                \
    NAME(const std::string& argument, SystemError error); \
  }
#define TOLVEN_EXCEPT_SYSTEM_PLAIN(NAME) \
  class NAME : public CExcept {          \
   public:                               \
    explicit NAME(SystemError error);    \
  }

TOLVEN_EXCEPT(CUnsupportedArchiveException);        // archive, shown already: 1
TOLVEN_EXCEPT_SYSTEM(CCreateDirExcept);             // directory: 3
TOLVEN_EXCEPT_SYSTEM(CWriteExcept);                 // file: 4
TOLVEN_EXCEPT(CReadExcept);                         // file: 5
TOLVEN_EXCEPT_SYSTEM(COpenExcept);                  // file: 6
TOLVEN_EXCEPT(CCompExcept);                         // file: 9
TOLVEN_EXCEPT(CDecompExcept);                       // file: 11
TOLVEN_EXCEPT(CChecksumExcept);                     // file: 12
TOLVEN_EXCEPT_SYSTEM(CChgModExcept);                // file: 13
TOLVEN_EXCEPT_SYSTEM(CChgDateExcept);               // file: 14
TOLVEN_EXCEPT_SYSTEM_PLAIN(CGetCwdExcept);          // 17
TOLVEN_EXCEPT(CDiskSpaceExcept);                    // path: 30
TOLVEN_EXCEPT_SYSTEM(CReadLinkExcept);              // link: 35
TOLVEN_EXCEPT_SYSTEM(CCreateLnkExcept);             // link: 36
TOLVEN_EXCEPT(CConversionExcept);                   // text, may be empty: 47
TOLVEN_EXCEPT_SYSTEM(CSetFileAttrExcept);           // file: 48
TOLVEN_EXCEPT(CAddPrivilegeExcept);                 // text: 49
TOLVEN_EXCEPT_PLAIN(CInvalidHandle);                // 50
TOLVEN_EXCEPT_SYSTEM_PLAIN(CGetFilePosExcept);      // 51
TOLVEN_EXCEPT_SYSTEM_PLAIN(CSetFilePointerExcept);  // 52
TOLVEN_EXCEPT_SYSTEM(CChgDirExcept);                // directory: the system's number + 100
TOLVEN_EXCEPT_SYSTEM(CStatExcept);                  // file: the system's number + 100
TOLVEN_EXCEPT_SYSTEM(CAccessExcept);                // file: the system's number + 100
TOLVEN_EXCEPT(CInvalExcept);                        // archive: 0, and the exit code stays as it is

#undef TOLVEN_EXCEPT
#undef TOLVEN_EXCEPT_PLAIN
#undef TOLVEN_EXCEPT_SYSTEM
#undef TOLVEN_EXCEPT_SYSTEM_PLAIN

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

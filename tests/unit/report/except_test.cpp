#include "report/except.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>

#include "report/run_status.h"
#include "signing/names/smf_names.h"

namespace tolven {
namespace {

const std::string kEnoent = "No such file or directory";

// One exception, made with errno ENOENT while the exit code is 77.
struct Case {
  std::function<CExcept()> make;
  std::string message;
  int number;
  int exitCode;
};

template <typename T>
std::function<CExcept()> Make(const std::string& argument) {
  return [argument]() -> CExcept { return T(argument); };
}
template <typename T>
std::function<CExcept()> Make() {
  return []() -> CExcept { return T(); };
}

TEST(Except, TextsNumbersAndExitCodes) {
  const Case cases[] = {
      {Make<CUnsupportedArchiveException>("a"), "TOLVEN: unsupported archive: a", 1, 1},
      {Make<CCreateDirExcept>("d"), "TOLVEN: can not create directory d (error 3). " + kEnoent, 3, 3},
      {Make<CWriteExcept>("f"), "TOLVEN: error writing to f (error 4). " + kEnoent, 4, 4},
      {Make<CReadExcept>("f"), "TOLVEN: error reading from f (error 5). ", 5, 5},
      {Make<COpenExcept>("a.txt"), "TOLVEN: error opening a.txt (error 6). " + kEnoent, 6, 6},
      {Make<CCompExcept>("f"), "TOLVEN: error compressing f", 9, 9},
      {Make<CDecompExcept>("f"), "TOLVEN: error decompressing f", 11, 11},
      {Make<CChecksumExcept>("f"), "TOLVEN: checksum error in f", 12, 12},
      {Make<CChgModExcept>("f"), "TOLVEN: can not set permissions for f (error 13). " + kEnoent, 13, 13},
      {Make<CChgDateExcept>("f"), "TOLVEN: can not change date for f (error 14). " + kEnoent, 14, 14},
      {Make<CGetCwdExcept>(), "TOLVEN: can not get working directory  (error 17). " + kEnoent, 17, 17},
      {Make<CDiskSpaceExcept>("p"), "TOLVEN: error determining disk space for p", 30, 30},
      {Make<CReadLinkExcept>("l"), "TOLVEN: can not read link l (error 35). " + kEnoent, 35, 35},
      {Make<CCreateLnkExcept>("l"), "TOLVEN: can not create softlink l (error 36). " + kEnoent, 36, 36},
      {Make<CConversionExcept>("t"), "TOLVEN: could not convert t to UTF8.", 47, 47},
      {Make<CConversionExcept>(""), "TOLVEN: could not convert from UTF8 string", 47, 47},
      {Make<CSetFileAttrExcept>("f"), "TOLVEN: setting file attributes failed forf (error 48). " + kEnoent,
       48, 48},
      {Make<CAddPrivilegeExcept>("t"), "TOLVEN: adding privileges failed.t", 49, 49},
      {Make<CInvalidHandle>(), "TOLVEN: invalid file handle specified", 50, 50},
      {Make<CGetFilePosExcept>(), "TOLVEN: could not get position of file pointer. (error 51). " + kEnoent,
       51, 51},
      {Make<CSetFilePointerExcept>(),
       "TOLVEN: could not set position of file pointer. (error 52). " + kEnoent, 52, 52},
      {Make<CChgDirExcept>("d"), "TOLVEN: can not change to dir d (error 102). " + kEnoent, 102, 102},
      {Make<CStatExcept>("f"), "TOLVEN: stat() failed for f (error 102). " + kEnoent, 102, 102},
      {Make<CAccessExcept>("f"), "TOLVEN: access() failed for f (error 102). " + kEnoent, 102, 102},
      {Make<CInvalExcept>("a"), "TOLVEN: invalid archive a", 0, 77},
  };
  for (const Case& test : cases) {
    RunStatus status;
    RunStatusScope scope(status);
    status.exitCode = 77;
    errno = ENOENT;
    const CExcept except = test.make();
    EXPECT_EQ(except.GetInfoText(), test.message);
    EXPECT_EQ(except.GetMsg(), test.message);
    EXPECT_EQ(except.GetNumber(), test.number) << test.message;
    EXPECT_EQ(status.exitCode, test.exitCode) << test.message;
  }
}

TEST(Except, SystemTextFollowsErrno) {
  errno = 0;
  EXPECT_EQ(CExcept("X", 20, false).GetMsg(), "X (error 20). ");
  EXPECT_EQ(CExcept("X", 20, true).GetMsg(), "X (error 20). ");
  EXPECT_EQ(CChgDirExcept("d").GetNumber(), 100);
  errno = ENOENT;
  EXPECT_EQ(CExcept("X", 20, false).GetMsg(), "X (error 20). ");
  EXPECT_EQ(CExcept("X", 20, true).GetMsg(), "X (error 20). " + kEnoent);
  const CExcept plain("X");
  EXPECT_EQ(plain.GetMsg(), "X (error 100). " + kEnoent);
  EXPECT_EQ(plain.GetNumber(), 100);
  EXPECT_EQ(errno, ENOENT) << "a second exception about the same failure reads it again";
}

TEST(Except, CopiesLeaveTheExitCodeAlone) {
  RunStatus status;
  RunStatusScope scope(status);
  const CWriteExcept original("f");
  CExcept::NotifyProcessor(44);
  const CExcept copy = original;
  EXPECT_EQ(copy.GetNumber(), 4);
  EXPECT_EQ(status.exitCode, 44);
}

TEST(Except, StatusScopesNest) {
  RunStatus outer;
  RunStatusScope outerScope(outer);
  {
    RunStatus inner;
    RunStatusScope innerScope(inner);
    CExcept::NotifyProcessor(3);
    EXPECT_EQ(inner.exitCode, 3);
  }
  EXPECT_EQ(outer.exitCode, 0);
  CExcept::NotifyProcessor(4);
  EXPECT_EQ(outer.exitCode, 4);
}

struct ManifestCase {
  int manifestRc;
  int cryptoRc;
  int number;
  std::string message;
};

TEST(SignatureExcept, ManifestRows) {
  const std::string revocation =
      "TOLVEN: error during certificate revocation check (error 61). DKV-RC: 9 \nDetail: x";
  const std::string warning = "TOLVEN: warning in signature verification (error 60). \nDetail: x";
  const std::string none = "TOLVEN: error in processing the signed manifest file. \nDetail: x";
  const std::string other = "TOLVEN: error in processing the signed manifest file (error 54). SMF-RC: ";
  const ManifestCase cases[] = {
      {0, 0, 54, none},
      {10, -10, 54, none},
      {2147483647, 2147483647, 54, other + "SMF_UNKNOWN_ERROR DKV-RC: 2147483647 \nDetail: x"},
      {10, 0, 57, "TOLVEN: invalid digest of archive file(s) (error 57). \nDetail: x"},
      {12, 9, 56, "TOLVEN: error in loading the cryptographic library (error 56). \nDetail: x"},
      {17, 0, 58, "TOLVEN: at least one file was not signed (error 58). \nDetail: x"},
      {18, 0, 55, "TOLVEN: external manifest differs to internal content (error 55). \nDetail: x"},
      {19, 0, 54, other + "SMF_ETSA DKV-RC: 0 \nDetail: x"},
      {20, 9, 61, revocation},
      {21, 9, 61, revocation},
      {22, 9, 61, revocation},
      {23, 9, 61, revocation},
      {24, 0, 60, warning},
      {25, 0, 60, warning},
      {26, 9, 60, "TOLVEN: error in signature verification (error 60). DKV-RC: 9 \nDetail: x"},
      {27, 0, 54, other + "SMF_UNKNOWN_ERROR DKV-RC: 0 \nDetail: x"},
      {0, 9, 54, other + "SMF_OK DKV-RC: 9 \nDetail: x"},
  };
  for (const ManifestCase& test : cases) {
    RunStatus status;
    RunStatusScope scope(status);
    const CInvalManifestExcept except("x", test.manifestRc, test.cryptoRc);
    EXPECT_EQ(except.GetMsg(), test.message);
    EXPECT_EQ(except.GetNumber(), test.number);
    EXPECT_EQ(status.exitCode, test.number);
  }
}

TEST(SignatureExcept, LibraryNamesAndTheCut) {
  static std::string name;
  name = "DKV_FAILED";
  SetDkvNameResolver([](int code) -> const char* { return code == 9 ? name.c_str() : nullptr; });
  EXPECT_EQ(CInvalSignatureExcept("x", 9).GetMsg(),
            "TOLVEN: error in signature verification (error 60). DKV-RC: DKV_FAILED \nDetail: x");
  EXPECT_EQ(CInvalSignatureExcept("x", 8).GetMsg(),
            "TOLVEN: error in signature verification (error 60). DKV-RC: 8 \nDetail: x");
  name.assign(600, 'N');
  const std::string detail(600, 'd');
  const std::string message = CInvalSignatureExcept(detail, 9).GetMsg();
  SetDkvNameResolver(nullptr);
  EXPECT_EQ(message.size(), 511U + detail.size());
  EXPECT_EQ(message.substr(500), std::string(11, 'N') + detail);
}

}  // namespace
}  // namespace tolven

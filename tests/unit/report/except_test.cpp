#include "report/except.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "report/code_names.h"
#include "report/run_status.h"

namespace tolven {
namespace {

const std::string kEnoent = "No such file or directory";

TEST(Except, SystemTextIsThatOfTheArgument) {
  const SystemError enoent{ENOENT};
  errno = EACCES;  // of some earlier call: none of the messages' business
  EXPECT_EQ(CExcept("X", 20).GetMsg(), "X (error 20). ");
  EXPECT_EQ(CExcept("X", 20, enoent).GetMsg(), "X (error 20). " + kEnoent);
  EXPECT_EQ(CChgDirExcept("d", kNoSystemError).GetNumber(), 100);
  EXPECT_EQ(CChgDirExcept("d", enoent).GetNumber(), 100 + ENOENT);
  EXPECT_EQ(CReadExcept("f").GetMsg(), "TOLVEN: error reading from f (error 5). ");
  const CExcept plain("X", enoent);
  EXPECT_EQ(plain.GetMsg(), "X (error 100). " + kEnoent);
  EXPECT_EQ(plain.GetNumber(), 100);
}

TEST(Except, CopiesLeaveTheExitCodeAlone) {
  RunStatus status;
  RunStatusScope scope(status);
  const CWriteExcept original("f", kNoSystemError);
  CExcept::NotifyProcessor(44);
  const CExcept copy = original;
  EXPECT_EQ(copy.GetNumber(), 4);
  EXPECT_EQ(status.exitCode, 44);
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

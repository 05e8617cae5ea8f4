#include "signing/crypto/secudir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace tolven {
namespace {

std::string said;
void OnMessage(const char* text) {
  said += text;
}

class Secudir : public ::testing::Test {
 protected:
  void SetUp() override {
    said.clear();
    m_home = std::getenv("HOME") == nullptr ? "" : std::getenv("HOME");
  }
  void TearDown() override {
    setenv("HOME", m_home.c_str(), 1);
    unsetenv("SECUDIR");
  }
  static std::string Value() {
    return std::getenv("SECUDIR") == nullptr ? "(unset)" : std::getenv("SECUDIR");
  }

  std::string m_home;
};

TEST_F(Secudir, DefaultBelowTheHomeDirectory) {
  for (const char* home : {"/home/a", "/home/somebody-with-a-longer-name"}) {
    unsetenv("SECUDIR");
    setenv("HOME", home, 1);
    Set_SECUDIR_Path(OnMessage);
    EXPECT_EQ(Value(), std::string(home) + "/.tolven/sec");
  }
  EXPECT_EQ(said, "");
  unsetenv("SECUDIR");
  unsetenv("HOME");
  Set_SECUDIR_Path(nullptr);
  EXPECT_TRUE(Value().ends_with("/.tolven/sec") || Value() == "/etc/tolven/sec") << Value();
}

TEST_F(Secudir, TooLongValuesAreCut) {
  const std::string tooLong(5000, 'd');
  setenv("SECUDIR", tooLong.c_str(), 1);
  Set_SECUDIR_Path(OnMessage);
  EXPECT_EQ(Value(), tooLong.substr(0, kSecudirLimit));
  EXPECT_EQ(said,
            "= found SECUDIR environment variable\n"
            "*** ERROR: length of SECUDIR (5000) exteeds 4095 chars, truncating it!");
}

}  // namespace
}  // namespace tolven

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "archive/extract_target.h"
#include "archive/memory_streams.h"
#include "cmdline/cmd_line.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

TEST(BufferedStream, ReadsRunOnAndWritesAreBounded) {
  CBufferedStream stream(8);
  unsigned char bytes[8] = "abcdefg";
  unsigned char back[8] = {};
  unsigned long done = 99;
  EXPECT_FALSE(stream.Read(bytes, 5, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_TRUE(stream.Write(bytes, 3, &done));
  EXPECT_TRUE(stream.Write(bytes + 3, 4, &done));
  EXPECT_TRUE(stream.Read(back, 5, &done));
  EXPECT_EQ(done, 5U);
  EXPECT_TRUE(stream.Read(back + 5, 5, &done));
  EXPECT_EQ(done, 2U);
  EXPECT_STREQ(reinterpret_cast<char*>(back), "abcdefg");
  EXPECT_FALSE(stream.Write(bytes, 2, &done)) << "beyond its limit";
}

class ExtractTargetTest : public test::TempDirTest {
 protected:
  static void PutFile(CExtractTarget& target, const std::string& path, std::uint32_t mode) {
    std::string content = "x";
    const auto pending = target.OpenFile(path, path);
    unsigned long done = 0;
    ASSERT_TRUE(pending->Stream().Write(reinterpret_cast<unsigned char*>(content.data()), 1, &done));
    target.CommitFile(*pending, mode, 1000, path);
  }
  static std::uint32_t ModeOf(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 ? status.st_mode & 07777 : 0;
  }

  CmdOptions m_options;
  CAPILogMan m_log;
  RunStatus m_status{.exitCode = 0, .logManager = &m_log};
  RunStatusScope m_scope{m_status};
};

TEST_F(ExtractTargetTest, WhatIsNotSignedGetsNoPower) {
  const mode_t mask = umask(027);
  test::WriteFile("before", "x");
  fs::create_symlink("long", "other");
  fs::create_symlink("long", "same");
  CExtractTarget target(m_options, true);
  target.AddDirectory("d", "d", 047777, 5);
  PutFile(target, "signed", 0107777);
  for (const char* name : {"before", "signed", "new"}) target.AddLink(name, "elsewhere", name);
  target.AddLink("other", "lon", "other");
  target.AddLink("same", "long", "same");
  target.Finish();
  target.AddLink("more", "t", "more");
  target.DropLinks();
  target.Finish();
  EXPECT_EQ(umask(mask), 027U);
  EXPECT_TRUE(fs::is_regular_file("before") && fs::is_regular_file("signed") && fs::is_symlink("new"));
  EXPECT_EQ(fs::read_symlink("other"), "long");
  EXPECT_FALSE(fs::is_symlink("more"));
  EXPECT_EQ(target.FailedLinks(), 3U);
  EXPECT_EQ(m_status.exitCode, 36);
  EXPECT_EQ(ModeOf("signed"), 0750U);
  EXPECT_EQ(ModeOf("d"), 0750U);
}

}  // namespace
}  // namespace tolven

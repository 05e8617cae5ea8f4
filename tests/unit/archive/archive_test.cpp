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
  static void PutFile(CExtractTarget& target, const std::string& path, bool verified) {
    std::string content = "x";
    const auto pending = target.OpenFile(path, path);
    unsigned long done = 0;
    ASSERT_TRUE(pending->Stream().Write(reinterpret_cast<unsigned char*>(content.data()), 1, &done));
    target.CommitFile(*pending, 0644, 1000, path, verified);
  }

  CmdOptions m_options;
  CAPILogMan m_log;
  RunStatus m_status{.exitCode = 0, .logManager = &m_log};
  RunStatusScope m_scope{m_status};
  CExtractTarget::VerifiedFiles m_verified;
};

// The second target is the run's next archive, which may be unsigned.
TEST_F(ExtractTargetTest, NoLinkTakesThePlaceOfAVerifiedFile) {
  test::WriteFile("before", "x");
  CExtractTarget first(m_options, m_verified);
  PutFile(first, "signed", true);
  PutFile(first, "plain", false);
  first.Finish();
  CExtractTarget second(m_options, m_verified);
  for (const char* name : {"before", "signed", "plain"}) second.AddLink(name, "elsewhere", name);
  second.Finish();
  second.AddLink("more", "t", "more");
  second.DropLinks();
  second.Finish();
  for (const char* name : {"before", "plain"}) EXPECT_EQ(fs::read_symlink(name), "elsewhere");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status("signed")));
  EXPECT_FALSE(fs::is_symlink("more"));
  EXPECT_EQ(second.FailedLinks(), 1U);
  EXPECT_EQ(m_status.exitCode, 36);
}

}  // namespace
}  // namespace tolven

#include "report/log_man.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "report/statistics.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using LogManTest = test::TempDirTest;

TEST_F(LogManTest, HandlesCountFromZero) {
  {
    CAPILogMan log;
    ASSERT_EQ(log.OpenLogFile("a.log"), 0);
    ASSERT_EQ(log.OpenLogFile("no/such/dir/b.log"), -1);
    ASSERT_EQ(log.OpenLogFile("b.log"), 1);
    EXPECT_EQ(log.WriteToLog(0, "one"), 1);
    EXPECT_EQ(test::ReadFile("a.log"), "one\n") << "flushed with every line";
    EXPECT_EQ(log.WriteToLog(0, "two"), 1);
    EXPECT_EQ(log.WriteToLog(-1, "lost"), 0);
    EXPECT_EQ(log.WriteToLog(2, "lost"), 0);
    EXPECT_FALSE(log.DeleteLogFile(2));
    EXPECT_TRUE(log.DeleteLogFile(1));
    EXPECT_FALSE(std::filesystem::exists("b.log"));
    EXPECT_FALSE(log.DeleteLogFile(1)) << "already gone";
    EXPECT_EQ(log.OpenLogFile("c.log"), 2) << "handles are never reused";
  }
  EXPECT_EQ(test::ReadFile("a.log"), "one\ntwo\n") << "log files outlive their manager";
}

TEST(Statistics, ElapsedTimeAndCount) {
  const std::pair<std::int64_t, std::string> cases[] = {
      {0, "00:00:00"},     {59, "00:00:59"},      {3725, "01:02:05"},
      {93789, "26:03:09"}, {360000, "100:00:00"}, {-5, "00:00:00"},
  };
  for (const auto& [seconds, text] : cases) {
    CStatistics statistics;
    statistics.SetElapsedSeconds(seconds);
    for (int i = 0; i < 12; ++i) statistics.CountFile();
    EXPECT_EQ(statistics.GetInfoText(), "Printing program statistics for TOLVEN...\ntime elapsed: " + text +
                                            " (hh:mm:ss)\nFiles processed: 12");
  }
}

}  // namespace
}  // namespace tolven

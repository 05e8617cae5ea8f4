#include "report/log_man.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "report/run_status.h"
#include "report/statistics.h"
#include "report/usage.h"
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

TEST_F(LogManTest, OpenTruncates) {
  test::WriteFile("a.log", "old");
  CAPILogMan log;
  ASSERT_EQ(log.OpenLogFile("a.log"), 0);
  EXPECT_EQ(std::filesystem::file_size("a.log"), 0U);
}

TEST(ConsoleLogMan, PrintsUpToTheFirstNul) {
  CConsoleLogMan log;
  testing::internal::CaptureStdout();
  log.PrintString(std::string("one\0two", 7));
  log.PrintString("");
  log.PrintInfo(CStatistics());
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "one\n\nPrinting program statistics for TOLVEN...\ntime elapsed: 00:00:00 (hh:mm:ss)\n"
            "Files processed: 0\n");
}

TEST(ApiLogMan, CollectsLinesOfTheCurrentRun) {
  CAPILogMan log;
  RunStatus status;
  PrintLine("nobody listens");
  RunStatusScope scope(status);
  PrintLine("nobody listens yet");
  status.logManager = &log;
  testing::internal::CaptureStdout();
  PrintLine("one");
  log.PrintString("two");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(log.GetOutput(), "one\ntwo\n");
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

// Fingerprint of the text; the blanks at line ends are the part that an editor likes to eat.
TEST(Usage, KeepsItsBlanks) {
  const std::string text = CUsage().GetInfoText();
  EXPECT_EQ(text.substr(0, 30), "usage:\n\ncreate a new archive:\n");
  for (const char* line : {"(default: QEL) \n", "(default: no password)  \n", "[-crl CRL] \n",
                           "during command \n", "verifies signed \n", "which is \n", "entries. This \n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line;
  }
  EXPECT_TRUE(text.ends_with("authenticity of the archive entries."));
  std::uint64_t hash = 14695981039346656037U;  // FNV-1a
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  EXPECT_EQ(hash, 12502237052739339747U);
}

}  // namespace
}  // namespace tolven

#include "report/statistics.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace tolven {
namespace {

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

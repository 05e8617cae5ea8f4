#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "report/code_names.h"
#include "report/except.h"
#include "report/statistics.h"

namespace tolven {
namespace {

TEST(Statistics, ElapsedTimeAndCount) {
  const std::pair<std::int64_t, std::string> cases[] = {
      {0, "00:00:00"}, {3725, "01:02:05"}, {93789, "26:03:09"}, {360000, "100:00:00"}, {-5, "00:00:00"}};
  for (const auto& [seconds, text] : cases) {
    CStatistics statistics;
    statistics.SetElapsedSeconds(seconds);
    for (int i = 0; i < 12; ++i) statistics.CountFile();
    EXPECT_EQ(statistics.GetInfoText(), "Printing program statistics for TOLVEN...\ntime elapsed: " + text +
                                            " (hh:mm:ss)\nFiles processed: 12");
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

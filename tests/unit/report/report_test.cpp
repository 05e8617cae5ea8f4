#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "report/code_names.h"
#include "report/except.h"
#include "report/space_info.h"
#include "report/user_info.h"
#include "support/temp_dir.h"

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

// A disk in memory: directories by path with their file system, files with their size, free space by system.
class FakeDisk : public IDiskProbe {
 public:
  bool Exists(const std::string& path) const override { return m_directories.contains(path); }
  bool GetSizeOfFile(const std::string& path, double& size) const override {
    const auto file = m_files.find(path);
    if (file == m_files.end()) return false;
    size = file->second;
    return true;
  }
  double GetDiskFreeSpace(const std::string& path) const override {
    ++m_spaceQuestions;
    const auto directory = m_directories.find(path);
    return directory == m_directories.end() ? -1.0 : m_free.at(directory->second);
  }
  bool CmpFS(const std::string& a, const std::string& b) const override {
    return m_directories.at(a) == m_directories.at(b);
  }

  std::map<std::string, int> m_directories{{".", 0}, {"/", 0}, {"./usr", 0}, {"./opt", 1}, {"/opt", 1}};
  std::map<std::string, double> m_files{{"./usr/old", 3000.0}};
  std::map<int, double> m_free{{0, 1e6}, {1, 1e6}};
  mutable int m_spaceQuestions = 0;
};

class SpaceInfoTest : public test::TempDirTest {
 protected:
  FakeDisk m_disk;
  CSpaceInfo m_info{m_disk, "."};
};

TEST_F(SpaceInfoTest, SumsByFileSystem) {
  m_info.AddInfo("usr/a", 1024.0, true);
  m_info.AddInfo("b", 1024.0, true);
  m_info.AddInfo("opt/new/deep/c", 512.0, true);
  m_info.AddInfo("/opt/d", 1.0, true);
  m_info.AddInfo("usr\\old", 4024.0, true);
  EXPECT_EQ(m_info.GetInfoText(),
            "The extraction requires approximately...\n\t3 KB in ./usr\n\t0.500977 KB in ./opt\n");
}

TEST_F(SpaceInfoTest, ShortfallOfOneByteIsMissing) {
  m_disk.m_free[0] = 2048.0;
  m_disk.m_free[1] = 2048.0;
  m_info.AddInfo("a", 2047.0, true);
  m_info.AddInfo("opt/b", 4096.0, true);
  EXPECT_EQ(m_info.GetInfoText(), "There is free space missing... \n\t2 KB in ./opt\n");
  EXPECT_EQ(m_disk.m_spaceQuestions, 2) << "one evaluation a report";
  EXPECT_EQ(m_info.GetInfoText(), "There is free space missing... \n\t2 KB in ./opt\n");
  // No byte left over counts as missing too, with nothing to print.
  CSpaceInfo exact(m_disk, ".");
  exact.AddInfo("a", 2048.0, true);
  EXPECT_FALSE(exact.CmpSpcReqAvail());
  EXPECT_EQ(exact.GetInfoText(), "There is free space missing... \n");
}

}  // namespace
}  // namespace tolven

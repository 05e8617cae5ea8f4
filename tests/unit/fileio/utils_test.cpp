#include "fileio/utils.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <string>
#include <vector>

#include "report/except.h"
#include "report/run_status.h"
#include "support/temp_dir.h"

// Stands in for the system's: a disk that likes to be given more at once than it counts in, as over a
// network.
extern "C" int statvfs(const char*, struct statvfs* status) noexcept {
  *status = {};
  status->f_bsize = 1U << 20;
  status->f_frsize = 4096;
  status->f_bavail = 5;
  return 0;
}

namespace tolven {
namespace {

class Scan : public test::TempDirTest {
 protected:
  RunStatus m_status;
  RunStatusScope m_scope{m_status};
};

TEST_F(Scan, ALongPathFailsWithStat) {
  std::filesystem::create_directory("dir");
  test::WriteFile("dir/a.txt", "x");
  strFileData data;
  // The directory can be opened, the name below it is too long for lstat.
  std::string deep = "dir";
  while (deep.size() < 4080) deep += "/.";
  EXPECT_NE(CUtils::FileFindFirst(deep + "/a.txt", &data), nullptr);
  while (deep.size() < 4090) deep += "/.";
  EXPECT_THROW((void)CUtils::FileFindFirst(deep + "/a.txt", &data), CStatExcept);
  EXPECT_THROW((void)CUtils::FileFindFirst(deep + "/*.txt", &data), CStatExcept);
  EXPECT_EQ(m_status.exitCode, 100 + ENAMETOOLONG);
}

TEST(Utils, FreeSpaceIsCountedInFragments) {
  EXPECT_EQ(CUtils::GetDiskFreeSpace("."), 5 * 4096.0);
}

// The definition, word for word: at a "*" the rest is tried against every suffix.
bool SlowMatch(const char* name, const char* pattern) {
  if (*pattern == '\0') return *name == '\0';
  if (*pattern == '*') return SlowMatch(name, pattern + 1) || (*name != '\0' && SlowMatch(name + 1, pattern));
  return *name != '\0' && (*pattern == '?' || *pattern == *name) && SlowMatch(name + 1, pattern + 1);
}

// All texts over `alphabet` of up to `length` characters.
std::vector<std::string> AllTexts(const std::string& alphabet, std::size_t length) {
  std::vector<std::string> texts = {""};
  for (std::size_t begin = 0, n = 0; n < length; ++n) {
    const std::size_t end = texts.size();
    for (; begin < end; ++begin) {
      for (const char c : alphabet) texts.push_back(texts[begin] + c);
    }
  }
  return texts;
}

TEST(StringMatch, AgreesWithTheDefinition) {
  const auto names = AllTexts("ab", 6);
  for (const std::string& pattern : AllTexts("ab*?", 5)) {
    for (const std::string& name : names) {
      ASSERT_EQ(CUtils::StringMatch(name.c_str(), pattern.c_str()), SlowMatch(name.c_str(), pattern.c_str()))
          << name << " against " << pattern;
    }
  }
}

TEST(StringMatch, HostilePatternEnds) {
  std::string pattern;
  for (int i = 0; i < 2000; ++i) pattern += "*a";
  pattern += "b";
  EXPECT_FALSE(CUtils::StringMatch(std::string(4000, 'a').c_str(), pattern.c_str()));
}

TEST(ValidateFilePath, EveryResultStaysBelow) {
  for (const std::string& path : AllTexts("./a:", 7)) {
    std::string result = path;
    CUtils::ValidateFilePath(result);
    const std::string framed = "/" + result + "/";
    ASSERT_TRUE(result.empty() ||
                (framed.find("//") == std::string::npos && framed.find("/./") == std::string::npos &&
                 framed.find("/../") == std::string::npos))
        << path << " became " << result;
    // A second ":" belongs to the name, so only results without one are fixed points.
    if (result.find(':') != std::string::npos) continue;
    std::string again = result;
    CUtils::ValidateFilePath(again);
    ASSERT_EQ(again, result) << path;
  }
}

}  // namespace
}  // namespace tolven

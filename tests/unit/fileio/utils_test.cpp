#include "fileio/utils.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

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

namespace fs = std::filesystem;

class UtilsTest : public test::TempDirTest {
 protected:
  UtilsTest() {
    test::WriteFile("file", "12345");
    fs::create_directory("dir");
    fs::create_symlink("file", "link");
    fs::create_symlink("nowhere", "dangling");
    EXPECT_EQ(mkfifo("fifo", 0600), 0);
  }
  RunStatus m_status;
  RunStatusScope m_scope{m_status};
};

class ScanTest : public UtilsTest {
 protected:
  ScanTest() {
    for (const char* name : {"dir/a.txt", "dir/b.txt", "dir/.hidden", "dir/A.VRA", "dir/b.vra", "dir/*"}) {
      test::WriteFile(name, "x");
    }
  }
  // The names of a whole scan, sorted; the attributes of each are checked on the way.
  static std::vector<std::string> Scan(const std::string& pattern) {
    std::vector<std::string> names;
    strFileData data;
    FindHandle handle = CUtils::FileFindFirst(pattern, &data);
    if (handle == nullptr) return names;
    do {
      strFileData expected;
      EXPECT_TRUE(data.directory.ends_with('/'));
      EXPECT_TRUE(CUtils::SetFlAttr(data.directory + data.name.data(), expected));
      EXPECT_EQ(data.attributes, expected.attributes) << data.name.data();
      names.emplace_back(data.name.data());
    } while (CUtils::FileFindNext(handle, &data));
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(CUtils::FileFindClose(handle));
    EXPECT_FALSE(CUtils::FileFindClose(handle));
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(ScanTest, Patterns) {
  using Names = std::vector<std::string>;
  const std::pair<std::string, Names> cases[] = {
      {"*", {".", "..", "dangling", "dir", "fifo", "file", "link"}},
      {"f*", {"fifo", "file"}},
      {"dir/*.txt", {"a.txt", "b.txt"}},
      {"dir/?.vra", {"b.vra"}},
      {"dir/a.txt", {"a.txt"}},
      {"dir//a.txt", {"a.txt"}},
      {"dir/nothing", {}},
      {"dir/", {}},
      {"", {}},
      {".", {"."}},
      {"..", {".."}},
      {"/", {"."}},
      {"/proc", {"proc"}},
      {"dir/..", {".."}},
      {"dangling", {"dangling"}},
      {"file/x", {}},
      {"missing/*", {}},
      {std::string(300, 'n'), {}},
      {m_dir / "dir/.h*", {".hidden"}},
  };
  for (const auto& [pattern, names] : cases) EXPECT_EQ(Scan(pattern), names) << pattern;
}

TEST_F(ScanTest, LongPathFailsWithStat) {
  // The directory can be opened, the name below it is too long for lstat.
  std::string deep = "dir";
  while (deep.size() < 4080) deep += "/.";
  EXPECT_EQ(Scan(deep + "/a.txt").size(), 1U);
  while (deep.size() < 4090) deep += "/.";
  strFileData data;
  EXPECT_THROW((void)CUtils::FileFindFirst(deep + "/a.txt", &data), CStatExcept);
  EXPECT_THROW((void)CUtils::FileFindFirst(deep + "/*.txt", &data), CStatExcept);
  EXPECT_EQ(m_status.exitCode, 100 + ENAMETOOLONG);
}

TEST(Utils, FreeSpaceIsCountedInFragments) {
  EXPECT_EQ(CUtils::GetDiskFreeSpace("."), 5 * 4096.0);
}

}  // namespace
}  // namespace tolven

#include "fileio/utils.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "fileio/disk_probe.h"
#include "fileio/path_formatter.h"
#include "report/except.h"
#include "report/run_status.h"
#include "support/temp_dir.h"

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

TEST_F(UtilsTest, TypesOfEveryKindOfObject) {
  struct Case {
    std::string path;
    int target;      // links followed
    int attributes;  // -1: no such object
    int type;
    bool isLink;
  };
  const Case cases[] = {
      {"file", FT_REGULAR, 0x8000, FT_REGULAR, false},
      {"dir", FT_DIRECTORY, 0x10, FT_DIRECTORY, false},
      {"link", FT_REGULAR, 0xA000, FT_LINK, true},
      {"dangling", FT_DANGLING_LINK, 0xA000, FT_LINK, true},
      {"fifo", FT_OTHER, 0, FT_OTHER, false},
      {"missing", FT_MISSING, -1, 0, false},
      {"file/x", FT_MISSING, -1, 0, false},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.path);
    EXPECT_EQ(CUtils::TargetFileType(test.path), test.target);
    strFileData data;
    ASSERT_EQ(CUtils::SetFlAttr(test.path, data), test.attributes >= 0);
    if (test.attributes < 0) continue;
    EXPECT_EQ(data.attributes, static_cast<std::uint32_t>(test.attributes));
    EXPECT_EQ(CUtils::DetermineFlType(data), test.type);
    EXPECT_EQ(CUtils::IsLink(test.path), test.isLink);
  }
  EXPECT_EQ(m_status.exitCode, 0) << "queries construct no exceptions";
  EXPECT_FALSE(CUtils::IsLink(""));
  EXPECT_THROW((void)CUtils::IsLink("missing"), CAccessExcept);
  EXPECT_EQ(m_status.exitCode, 102);
}

TEST_F(UtilsTest, Queries) {
  double size = 0;
  EXPECT_TRUE(CUtils::GetSizeOfFile("link", size));
  EXPECT_EQ(size, 5.0);
  EXPECT_FALSE(CUtils::GetSizeOfFile("missing", size));
  EXPECT_TRUE(CUtils::ExistsFile("link"));
  EXPECT_FALSE(CUtils::ExistsFile("dangling"));

  strFileInformation info;
  ASSERT_TRUE(CUtils::GetFileInformation("link", info, true));
  EXPECT_EQ(info.mode & S_IFMT, static_cast<std::uint32_t>(S_IFREG));
  EXPECT_EQ(info.size, 5U);
  struct stat status;
  ASSERT_EQ(stat("file", &status), 0);
  EXPECT_EQ(info.mtime, status.st_mtime);
  EXPECT_EQ(info.inode, status.st_ino);
  EXPECT_EQ(info.device, status.st_dev);
  ASSERT_TRUE(CUtils::GetFileInformationWithLongFileName("link", info, false));
  EXPECT_EQ(info.mode & S_IFMT, static_cast<std::uint32_t>(S_IFLNK));
  EXPECT_FALSE(CUtils::GetFileInformation("dangling", info, true));

  EXPECT_GT(CUtils::GetDiskFreeSpace("."), 0.0);
  EXPECT_EQ(CUtils::GetDiskFreeSpace("missing"), -1.0);
  EXPECT_TRUE(CUtils::CmpFS(".", "dir"));
  EXPECT_FALSE(CUtils::CmpFS(".", "/proc"));
  EXPECT_THROW((void)CUtils::CmpFS(".", "missing"), CExcept);
  EXPECT_EQ(m_status.exitCode, 100);

  const CDiskProbe probe;
  EXPECT_TRUE(probe.Exists("dir"));
  EXPECT_FALSE(probe.Exists("missing"));
  EXPECT_TRUE(probe.GetSizeOfFile("file", size));
  EXPECT_GT(probe.GetDiskFreeSpace("."), 0.0);
  EXPECT_TRUE(probe.CmpFS(".", "dir"));
}

TEST_F(UtilsTest, Changes) {
  EXPECT_TRUE(CUtils::CreateDir("new"));
  EXPECT_TRUE(CUtils::CreateDir("new")) << "already there";
  EXPECT_FALSE(CUtils::CreateDir("missing/new"));
  EXPECT_TRUE(CUtils::DeleteFile("link"));
  EXPECT_FALSE(CUtils::DeleteFile("link"));
  EXPECT_TRUE(CUtils::ExistsFile("file")) << "the link went, not its target";

  CUtils::SetFileMode("file", S_IFREG | 06751);
  CUtils::SetFileDateWrapper("file", S_IFREG, 5L << 31);
  struct stat status;
  ASSERT_EQ(stat("file", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 06751U);
  EXPECT_EQ(status.st_mtime, 5L << 31);
  EXPECT_EQ(status.st_atime, 5L << 31);
  CUtils::SetFileMode("missing", S_IFLNK);
  CUtils::SetFileDateWrapper("missing", S_IFLNK, 0);
  EXPECT_EQ(m_status.exitCode, 0);
  EXPECT_THROW(CUtils::SetFileMode("missing", 0644), CChgModExcept);
  EXPECT_THROW(CUtils::SetFileDateWrapper("missing", 0644, 0), CChgDateExcept);
}

TEST_F(UtilsTest, LastErrorIsNeverZero) {
  errno = 0;
  EXPECT_EQ(CUtils::LastError(), 18);
  EXPECT_EQ(CUtils::GetErrorText(), "");
  errno = ENOENT;
  EXPECT_EQ(CUtils::LastError(), ENOENT);
  EXPECT_EQ(CUtils::GetErrorText(), "No such file or directory");
}

TEST_F(UtilsTest, PathFormatter) {
  EXPECT_EQ(CPathFormatter::ToAbsWinFormatLongName("/a/b\\c"), "\\a\\b\\c");
}

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

TEST_F(ScanTest, FailureTellsWhy) {
  strFileData data;
  const std::pair<std::string, int> cases[] = {
      {"missing/x", ENOENT}, {"missing/*", ENOENT}, {"file/x", ENOTDIR}, {"dir/x", 0}, {"dir/x*", 0},
  };
  for (const auto& [pattern, error] : cases) {
    errno = EIO;
    EXPECT_EQ(CUtils::FileFindFirst(pattern, &data), nullptr);
    EXPECT_EQ(errno, error) << pattern;
  }
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

TEST_F(ScanTest, AddNamesToContainer) {
  using Names = std::vector<std::string>;
  struct Case {
    std::string pattern;
    bool ignoreCase;
    int result;
    Names names;
  };
  const Case cases[] = {
      {"dir/*.vra", false, 0, {"dir/b.vra"}},
      {"dir/*.vra", true, 0, {"dir/A.VRA", "dir/b.vra"}},
      {"dir/a.vra", true, 0, {"dir/A.VRA"}},
      {"DIR/a.vra", true, ENOENT, {}},
      {"FILE", true, 0, {"file"}},
      {"f*", false, 0, {"fifo", "file"}},
      {"*", false, 0, {"dangling", "dir", "fifo", "file", "link"}},
      {"*", true, 0, {"dangling", "dir", "fifo", "file", "link"}},
      {"/PRO?", true, 0, {"/proc"}},
      {"dir/none*", false, 0, {}},
      {"missing/*", false, ENOENT, {}},
  };
  for (const Case& test : cases) {
    Names names = {"first"};
    EXPECT_EQ(AddNamesToContainer(names, test.pattern, test.ignoreCase), test.result) << test.pattern;
    std::sort(names.begin() + 1, names.end());
    Names expected = test.names;
    expected.insert(expected.begin(), "first");
    EXPECT_EQ(names, expected) << test.pattern;
  }
}

}  // namespace
}  // namespace tolven

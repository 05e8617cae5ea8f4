#include "fileio/utils.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cerrno>

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

}  // namespace
}  // namespace tolven

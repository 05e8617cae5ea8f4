#include "fileio/file_stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "report/log_man.h"
#include "report/run_status.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

class FileStreamTest : public test::TempDirTest {
 protected:
  static bool Put(CFileStream& stream, std::string text) {
    unsigned long done = 0;
    return stream.Write(reinterpret_cast<unsigned char*>(text.data()), text.size(), &done) &&
           done == text.size();
  }
  static std::string Get(CFileStream& stream, std::size_t n) {
    std::string text(n, '\0');
    unsigned long done = 0;
    EXPECT_TRUE(stream.Read(reinterpret_cast<unsigned char*>(text.data()), n, &done));
    text.resize(done);
    return text;
  }
};

TEST_F(FileStreamTest, ModesFirstMatchWins) {
  struct Case {
    unsigned int mode;
    bool opensMissing;
    std::string afterWriting;  // "XY" into a file that holds "old"
  };
  const Case cases[] = {
      {kOpenAppend, true, "oldXY"},
      {kOpenCreate, true, "XY"},
      {kOpenReadWrite, false, "XYd"},
      {kOpenAppend | kOpenCreate, true, "oldXY"},
      {kOpenCreate | kOpenReadWrite, true, "XY"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(CFileStream("missing", test.mode).Open(), test.opensMissing) << std::hex << test.mode;
    std::filesystem::remove("missing");
    test::WriteFile("file", "old");
    CFileStream stream("file", test.mode);
    ASSERT_TRUE(stream.Open());
    EXPECT_TRUE(Put(stream, "XY"));
    EXPECT_TRUE(stream.Close());
    EXPECT_EQ(test::ReadFile("file"), test.afterWriting) << std::hex << test.mode;
  }
}

TEST_F(FileStreamTest, OpenFailures) {
  CFileStream stream("missing", kOpenRead);
  EXPECT_FALSE(stream.Open());
  EXPECT_EQ(stream.GetLastError(), ENOENT);
  test::WriteFile("file", "x");
  stream.Open("file/below", kOpenRead, 0);
  EXPECT_EQ(stream.GetLastError(), ENOTDIR);
  stream.Open("file", 0x1, 0);
  EXPECT_FALSE(stream.Open());
  EXPECT_EQ(stream.GetLastError(), EINVAL);
  stream.Open("file", kOpenRead, 7);
  EXPECT_TRUE(stream.Open());
  EXPECT_NE(fcntl(stream.Descriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(FileStreamTest, ShortReadAtTheEndIsSuccess) {
  test::WriteFile("file", "12345");
  CFileStream stream("file", kOpenRead);
  EXPECT_EQ(Get(stream, 3), "123");
  EXPECT_EQ(Get(stream, 3), "45");
  EXPECT_EQ(Get(stream, 3), "");
  EXPECT_TRUE(stream.SetPos(1));
  EXPECT_EQ(Get(stream, 2), "23");
}

TEST_F(FileStreamTest, ReadErrorIsKept) {
  CFileStream stream(".", kOpenRead);
  ASSERT_TRUE(stream.Open()) << "a directory opens, and only reading fails";
  unsigned char byte = 0;
  unsigned long done = 9;
  EXPECT_FALSE(stream.Read(&byte, 1, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_EQ(stream.GetLastError(), EISDIR);
}

TEST_F(FileStreamTest, ClosedStreamRefusesWithoutTouchingErrno) {
  CFileStream stream;
  long position = 5;
  errno = 0;
  EXPECT_FALSE(stream.GetPos(&position));
  EXPECT_FALSE(stream.SetPos(0));
  EXPECT_FALSE(stream.MoveFlPtr(1));
  EXPECT_FALSE(stream.MoveToEnd());
  EXPECT_FALSE(stream.Truncate());
  EXPECT_FALSE(stream.Flush());
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(position, 5);
  EXPECT_EQ(stream.Descriptor(), -1);
  errno = EIO;
  EXPECT_FALSE(stream.Close());
  EXPECT_EQ(stream.GetLastError(), EIO);
  unsigned char byte = 0;
  unsigned long done = 0;
  EXPECT_FALSE(stream.Read(&byte, 1, &done));
  EXPECT_FALSE(stream.Write(&byte, 1, &done));
}

TEST_F(FileStreamTest, PositionsBeyondFourGiB) {
  constexpr long kFar = 5L << 30;
  CFileStream stream("sparse", kOpenCreate);
  ASSERT_TRUE(Put(stream, "head"));
  ASSERT_TRUE(stream.SetPos(kFar));
  ASSERT_TRUE(Put(stream, "tail"));
  long position = 0;
  ASSERT_TRUE(stream.GetPos(&position));
  EXPECT_EQ(position, kFar + 4);
  EXPECT_TRUE(stream.GetPos(nullptr));
  ASSERT_TRUE(stream.Close());

  stream.Open("sparse", kOpenRead, 0);
  EXPECT_EQ(Get(stream, 4), "head");
  ASSERT_TRUE(stream.MoveFlPtr(kFar - 4));
  EXPECT_EQ(Get(stream, 9), "tail");
  ASSERT_TRUE(stream.MoveFlPtr(-2));
  EXPECT_EQ(Get(stream, 9), "il");
  EXPECT_TRUE(stream.MoveFlPtr(kFar)) << "seeking beyond the end succeeds";
  EXPECT_EQ(Get(stream, 1), "");
  EXPECT_FALSE(stream.SetPos(-1));
  EXPECT_EQ(stream.GetLastError(), EINVAL);
}

TEST_F(FileStreamTest, TurnsBetweenReadingAndWriting) {
  test::WriteFile("file", std::string(10000, 'a'));
  CFileStream stream("file", kOpenReadWrite);
  EXPECT_EQ(Get(stream, 3), "aaa");
  ASSERT_TRUE(Put(stream, "bbb"));
  EXPECT_EQ(Get(stream, 1), "a");
  ASSERT_TRUE(stream.SetPos(9));
  ASSERT_TRUE(Put(stream, "c"));
  ASSERT_TRUE(stream.Truncate());
  ASSERT_TRUE(stream.MoveToEnd());
  long position = 0;
  ASSERT_TRUE(stream.GetPos(&position));
  EXPECT_EQ(position, 10);
  ASSERT_TRUE(stream.Close());
  EXPECT_EQ(test::ReadFile("file"), "aaabbbaaac");
}

TEST_F(FileStreamTest, FlushShowsBufferedBytes) {
  CFileStream stream("file", kOpenCreate);
  ASSERT_TRUE(Put(stream, "x"));
  ASSERT_TRUE(stream.Flush());
  EXPECT_EQ(test::ReadFile("file"), "x");
}

TEST_F(FileStreamTest, AttachedDescriptorWritesThrough) {
  CFileStream stream;
  ASSERT_TRUE(stream.Attach(open("file", O_CREAT | O_WRONLY, 0600)));
  ASSERT_TRUE(Put(stream, "x"));
  EXPECT_EQ(test::ReadFile("file"), "x");
  const int descriptor = stream.Descriptor();
  ASSERT_TRUE(stream.Close());
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  EXPECT_FALSE(stream.Attach(-1));
  EXPECT_EQ(stream.GetLastError(), EBADF);
}

TEST_F(FileStreamTest, FullDiskIsSeenAtTheLatestByClose) {
  CFileStream stream("/dev/full", kOpenCreate);
  ASSERT_TRUE(stream.Open());
  EXPECT_TRUE(Put(stream, "x"));
  EXPECT_FALSE(stream.Close());
  EXPECT_EQ(stream.GetLastError(), ENOSPC);
  EXPECT_FALSE(stream.Open());

  stream.Open("/dev/full", kOpenCreate, 0);
  EXPECT_FALSE(Put(stream, std::string(200000, 'x')));
}

TEST_F(FileStreamTest, DestructorPrintsAFailingClose) {
  CAPILogMan log;
  RunStatus status;
  status.logManager = &log;
  RunStatusScope scope(status);
  {
    CFileStream stream("/dev/full", kOpenCreate);
    EXPECT_TRUE(Put(stream, "x"));
  }
  { CFileStream stream("fine", kOpenCreate); }
  EXPECT_EQ(log.GetOutput(), "TOLVEN: error closing file! No space left on device\n");
}

}  // namespace
}  // namespace tolven

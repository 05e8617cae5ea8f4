#include "fileio/file_stream.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

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

}  // namespace
}  // namespace tolven

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "archive/entry_info.h"
#include "archive/memory_streams.h"
#include "archive/selection.h"
#include "archive_bytes.h"

namespace tolven {
namespace {

TEST(EntryInfo, ListsModesLengthsAndDates) {
  setenv("TZ", "UTC", 1);
  tzset();
  const struct {
    std::uint32_t mode;
    std::int64_t size;
    std::uint32_t sizeHigh;
    std::int64_t mtime;
    bool isSigned;
    const char* line;
  } rows[] = {
      {0100644, 5, 0, 1577959620, false, "-rw-r--r--           5    02 Jan 2020 10:07 n"},
      {0100644, 5, 0, 1577959620, true, "srw-r--r--           5    02 Jan 2020 10:07 n"},
      {040755, 4096, 0, 0, true, "drwxr-xr-x        4096    01 Jan 1970 00:00 n"},
      {0104755, 0, 0, -1, false, "-rwsr-xr-x           0    31 Dec 1969 23:59 n"},
      {041777, 0, 0, 0, false, "drwxrwxrws           0    01 Jan 1970 00:00 n"},
      {0107000, 0, 0, 0, false, "---s--s--s           0    01 Jan 1970 00:00 n"},
      {0120777, 0, 0, 0, false, "lrwxrwxrwx           0    01 Jan 1970 00:00 n"},
      {0100600, 1, 1, 4102444800, false, "-rw-------  4294967297    01 Jan 2100 00:00 n"},
      {0100600, 1234567890123, 0, 0, false, "-rw-------1234567890123    01 Jan 1970 00:00 n"},
      {0100600, 0, 0, INT64_MAX, false, "-rw-------           0                      n"},
  };
  for (const auto& row : rows) {
    EntryHeader header;
    header.mode = row.mode;
    header.size = row.size;
    header.sizeHigh = row.sizeHigh;
    header.mtime = row.mtime;
    EXPECT_EQ(CEntryInfo("n", header, row.isSigned).GetInfoText(), row.line);
  }
}

TEST(Selection, TakesNamesAndWhatIsBelowDirectories) {
  using Names = std::vector<std::string>;
  const std::string bytes = test::ArchiveBytes()
                                .Entry("DR", "d", 0, 040755)
                                .Entry("RG", "d/f", 0)
                                .Entry("RG", "dx", 0)
                                .Entry("LK", "l|d/f", 0)
                                .Entry("RG", "e/f", 0)
                                .Bytes();
  const struct {
    Names names;
    std::string expected;
  } rows[] = {
      {{}, "d d/f dx l|d/f e/f "}, {{"*"}, "d d/f dx l|d/f e/f "}, {{"d"}, "d d/f "},
      {{"d/f"}, "d/f "},           {{"l"}, "l|d/f "},              {{"l|d/f"}, "l|d/f "},
      {{"e"}, ""},                 {{"d*"}, ""},                   {{"dx", "none"}, "dx "},
  };
  for (const auto& row : rows) {
    test::Run run;
    CArchive& archive = run.Open(bytes);
    CSelection selection(row.names);
    std::string selected;
    for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
      if (selection.Selects(*entry)) selected += entry->GetStoredName() + " ";
    }
    EXPECT_EQ(selected, row.expected);
  }
}

TEST(MemoryStreams, BufferedReadsRunOnAndAreBounded) {
  CBufferedStream stream(8);
  unsigned char bytes[8] = "abcdefg";
  unsigned long done = 99;
  EXPECT_FALSE(stream.Read(bytes, 5, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_TRUE(stream.Write(bytes, 3, &done));
  EXPECT_TRUE(stream.Write(bytes + 3, 4, &done));
  EXPECT_EQ(done, 4U);
  unsigned char back[8] = {};
  EXPECT_TRUE(stream.Read(back, 5, &done));
  EXPECT_EQ(done, 5U);
  EXPECT_TRUE(stream.Read(back + 5, 5, &done));
  EXPECT_EQ(done, 2U);
  EXPECT_STREQ(reinterpret_cast<char*>(back), "abcdefg");
  EXPECT_FALSE(stream.Write(bytes, 2, &done)) << "beyond its limit";
}

}  // namespace
}  // namespace tolven

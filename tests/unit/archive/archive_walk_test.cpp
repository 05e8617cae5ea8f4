#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "archive_bytes.h"
#include "report/except.h"

namespace tolven {
namespace {

using test::ArchiveBytes;

// Walks the whole archive: the names one by one, or the message that ended the walk.
std::string Walk(test::Run& run, const std::string& bytes) {
  std::string names;
  try {
    CArchive& archive = run.Open(bytes);
    for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
      names += entry->GetName() + ";";
    }
  } catch (const CExcept& e) {
    return names + "!" + e.GetMsg();
  }
  return names;
}

TEST(ArchiveWalk, SaysWhatIsThereAndWhatIsWrong) {
  const std::string newer =
      "!TOLVEN: unsupported archive: archive version 2.02 is not supported by this release; to extract this "
      "archive you need to use a newer TOLVEN release\n";
  const std::string tooLong =
      "!TOLVEN: violation of data integrity - value of entry-name-length exceeds allocated buffer size! (error "
      "100). ";
  const std::string cut = "!TOLVEN: error reading from a.vra (error 5). ";
  const ArchiveBytes good = ArchiveBytes().Entry("RG", "a", 3).Block("UE", "abc").Crc(0);
  const struct {
    const char* situation;
    std::string bytes;
    std::string expected;
  } rows[] = {
      {"header alone", "ORV 2.01", ""},
      {"older version", ArchiveBytes("ORV 2.00").Entry("DR", "d", 0, 040755).Bytes(), "d;"},
      {"too short", "ORV 2.0", cut},
      {"newer version", "ORV 2.02", newer},
      {"backup", std::string("ORV\0", 4) + "2.01",
       "!TOLVEN: unsupported archive: archive is a windows backup archive that can be extracted with a "
       "unicode-enabled TOLVEN on windows only"},
      {"backup of a newer version: the version counts first", std::string("ORV\0", 4) + "2.02", newer},
      {"blocks are skipped", ArchiveBytes(good).Entry("DR", "d", 0, 040755).Bytes(), "a;d;"},
      {"access information is skipped", ArchiveBytes().Entry("RG", "a", 0, 0100644, "acl").Entry("LK", "l|t", 0).Bytes(),
       "a;l|t;"},
      {"first entry unknown", ArchiveBytes().Entry("ZZ", "a", 0).Bytes(), ""},
      {"later entry unknown", ArchiveBytes(good).Entry("ZZ", "b", 0).Bytes(),
       "a;!TOLVEN: unknown entry type encountered (error 100). "},
      {"type SV", ArchiveBytes().Entry("SV", "a", 0).Bytes(),
       "!TOLVEN: unknown entry type encountered (error 100). "},
      {"longest name", ArchiveBytes().EntryFields("DR", 040755, 0, 0, 0, 4352).Raw(std::string(4352, 'n')).Bytes(),
       std::string(4352, 'n') + ";"},
      {"name too long", ArchiveBytes().EntryFields("DR", 040755, 0, 0, 0, 4353).Raw(std::string(4353, 'n')).Bytes(),
       tooLong},
      {"name ends at its zero", ArchiveBytes().EntryFields("DR", 040755, 0, 0, 0, 4).Raw(std::string("a\0b", 4)).Bytes(),
       "a;"},
      {"cut in the header", good.Bytes().substr(0, 8 + 33), cut},
      {"cut in the name", good.Bytes().substr(0, 8 + 35), cut},
      {"cut in a block header", good.Bytes().substr(0, 8 + 36 + 5), "a;" + cut},
      {"cut in a payload", good.Bytes().substr(0, 8 + 36 + 8), "a;!TOLVEN: error in second MoveFlPtr() (error 100). "},
      {"cut in the checksum", good.Bytes().substr(0, good.Bytes().size() - 1),
       "a;!TOLVEN: error in second MoveFlPtr() (error 100). "},
      {"block of 4 GiB", ArchiveBytes().Entry("RG", "a", 1).Raw("DA").Number(0xFFFFFFFF, 4).Raw("x").Bytes(),
       "a;!TOLVEN: error in second MoveFlPtr() (error 100). "},
      {"one byte behind", good.Bytes() + "R", "a;" + cut},
  };
  for (const auto& row : rows) {
    test::Run run;
    EXPECT_EQ(Walk(run, row.bytes), row.expected) << row.situation;
  }
}

TEST(ArchiveWalk, WhatIsNoWholeEntryIsCutOff) {
  test::Run run;
  const ArchiveBytes one = ArchiveBytes().Entry("RG", "a", 3).Block("UD", "ab").Block("UE", "c").Crc(0);
  const ArchiveBytes two = ArchiveBytes(one).Entry("DR", "d", 4096, 040755);
  const std::string all = ArchiveBytes(two).Entry("RG", "e", 0).Entry("RG", "f", 1).Block("UE", "").Crc(0).Bytes();
  const std::size_t ends[] = {8, one.Bytes().size(), two.Bytes().size(), two.Bytes().size() + 36, all.size()};
  for (std::size_t size = 8; size <= all.size(); ++size) {
    run.Open(all.substr(0, size));
    test::Factory factory;
    CArchive archive("a.vra", kOpenReadWrite, factory, run.Options());
    const std::size_t whole = *(std::upper_bound(std::begin(ends), std::end(ends), size) - 1);
    EXPECT_EQ(archive.IsWhole(), whole == size) << size;
    archive.SeekToEnd();
    archive.CutBehindWholeEntries();
    EXPECT_EQ(std::filesystem::file_size("a.vra"), whole) << size;
  }
}

TEST(ArchiveWalk, FirstStartsOverAndStoredNamesStay) {
  test::Run run;
  run.Options().flat = true;
  CArchive& archive = run.Open(ArchiveBytes().Entry("RG", "d/MANIFEST", 0).Entry("RG", "MANIFEST", 1).Bytes());
  EXPECT_FALSE(archive.First()->GetStoredName() == "MANIFEST");
  EXPECT_FALSE(archive.IsSigned()) << "a shown name must not make a manifest";
  const CDirEntry* manifest = archive.Next();
  EXPECT_TRUE(archive.IsSigned());
  EXPECT_EQ(manifest->Header().mode, 0600U);
  EXPECT_EQ(archive.First()->GetStoredName(), "d/MANIFEST");
}

TEST(ArchiveWalk, OffsetsAreSixtyFourBit) {
  test::Run run;
  run.Open(ArchiveBytes().Entry("RG", "big", 1).Bytes());
  // Three blocks that claim nearly 4 GiB each, in a sparse file, and an entry behind them.
  std::fstream file("a.vra", std::ios::binary | std::ios::in | std::ios::out);
  std::streamoff at = 8 + 34 + 4;
  for (int i = 0; i < 3; ++i) {
    const std::string header = ArchiveBytes("").Raw("DA").Number(0xFFFFFF00, 4).Bytes();
    file.seekp(at).write(header.data(), static_cast<std::streamsize>(header.size()));
    at += 6 + std::streamoff{0xFFFFFF00};
  }
  const std::string last = ArchiveBytes("").Entry("DR", "behind", 0, 040755).Bytes();
  file.seekp(at).write(last.data(), static_cast<std::streamsize>(last.size()));
  file.close();
  {
    test::Factory factory;
    CArchive archive("a.vra", kOpenRead, factory, run.Options());
    archive.First();
    const CDirEntry* entry = archive.Next();
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->GetName(), "behind");
    EXPECT_EQ(entry->Start(), at);
  }
}

}  // namespace
}  // namespace tolven

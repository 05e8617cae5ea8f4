#include <gtest/gtest.h>

#include <algorithm>

#include "archive/entry_data.h"
#include "archive_bytes.h"
#include "cslib/cslib.h"
#include "report/except.h"

namespace tolven {
namespace {

using test::ArchiveBytes;

std::string Compress(const std::string& data) {
  std::string out(data.size() + 4096, '\0');
  std::int32_t read = 0;
  std::int32_t written = 0;
  const int rc = CsComprEx(static_cast<std::int32_t>(data.size()),
                           reinterpret_cast<const std::uint8_t*>(data.data()),
                           static_cast<std::int32_t>(data.size()), reinterpret_cast<std::uint8_t*>(out.data()),
                           static_cast<std::int32_t>(out.size()), CS_INIT | CS_ALGORITHM_LZH, &read, &written);
  EXPECT_EQ(rc, CS_END_OF_STREAM);
  out.resize(static_cast<std::size_t>(written));
  return out;
}

std::string Text(std::size_t length) {
  std::string text;
  for (std::size_t i = 0; text.size() < length; ++i) text += std::to_string(i * i) + " line\n";
  text.resize(length);
  return text;
}

// The data of the first entry, or the message that ended reading it.
std::string Read(test::Run& run, const std::string& bytes) {
  std::string data;
  try {
    CArchive& archive = run.Open(bytes);
    CDirEntry* entry = archive.First();
    CEntryDataReader reader(archive, *CDirEntry::m_pTheCompressor, entry->GetName());
    std::span<std::uint8_t> piece;
    while (reader.Next(piece)) data.append(piece.begin(), piece.end());
    EXPECT_EQ(reader.StoredCrc(), 77U);
  } catch (const CExcept& e) {
    return "!" + e.GetMsg();
  }
  return data;
}

TEST(EntryData, EndsAtItsEndBlockHoweverStreamsAndBlocksAreCut) {
  const std::string text = Text(150000);
  const std::string half = Text(65536);
  const std::string stream = Compress(text);
  const struct {
    const char* situation;
    std::string bytes;
    std::string expected;
  } rows[] = {
      {"one stream, one block", ArchiveBytes("").Block("ED", Compress(half)).Bytes(), half},
      {"one stream over many blocks",
       ArchiveBytes("").Block("DA", stream.substr(0, 8)).Block("DA", stream.substr(8, 992)).Block("ED", stream.substr(1000)).Bytes(),
       text},
      {"a stream a block", ArchiveBytes("").Block("DA", Compress(half)).Block("ED", Compress("x")).Bytes(), half + "x"},
      {"raw and compressed in turn",
       ArchiveBytes("").Block("UD", "raw").Block("DA", Compress(half)).Block("UE", "end").Bytes(), "raw" + half + "end"},
      {"an empty stream", ArchiveBytes("").Block("ED", Compress("")).Bytes(), ""},
      {"an empty last block", ArchiveBytes("").Block("DA", stream).Block("ED", "").Bytes(), text},
      {"unfinished at its end", ArchiveBytes("").Block("ED", stream.substr(0, 2000)).Bytes(),
       "!TOLVEN: error decompressing f"},
      {"raw inside a stream", ArchiveBytes("").Block("DA", stream.substr(0, 2000)).Block("UE", "raw").Bytes(),
       "!TOLVEN: error decompressing f"},
      {"no stream at all", ArchiveBytes("").Block("ED", "0123\x12" "56789").Bytes(),
       "!TOLVEN: error decompressing f (cslib error -50)"},
      {"shorter than a stream header", ArchiveBytes("").Block("ED", "0123").Bytes(),
       "!TOLVEN: error decompressing f (cslib error -11)"},
      {"payload over the limit", ArchiveBytes("").Block("UE", std::string(131073, 'x')).Bytes(),
       "!TOLVEN: error in GetEntryData(); entry data length exceeds buffer limit (error 100). "},
      {"payload at the limit", ArchiveBytes("").Block("UE", std::string(131072, 'x')).Bytes(), std::string(131072, 'x')},
      {"no block", ArchiveBytes("").Block("RG", "abc").Bytes(),
       "!TOLVEN: error in GetEntryData(); unknown block type (error 100). "},
  };
  for (const auto& row : rows) {
    test::Run run;
    const std::string bytes = ArchiveBytes().Entry("RG", "f", 1).Raw(row.bytes).Crc(77).Bytes();
    const std::string data = Read(run, bytes);
    EXPECT_TRUE(data == row.expected) << row.situation << ": " << data.substr(0, 100);
  }
}

}  // namespace
}  // namespace tolven

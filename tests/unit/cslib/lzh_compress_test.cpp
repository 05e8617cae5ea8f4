// The LZH compressor: bit for bit against a second implementation (matches, block boundaries, block types,
// trees), and taken apart by zlib.

#include <zlib.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cslib/driver.h"
#include "cslib/lzh_reference.h"

namespace tolven::test {
namespace {

// The uncompressed data by zlib, from the blocks behind header and preamble. Checks that the stream ends with
// the last block and one zero byte.
Bytes InflateBlocks(const Bytes& stream, std::size_t declared) {
  if (stream.size() < CS_HEAD_SIZE + 3) {
    ADD_FAILURE() << "only " << stream.size() << " bytes";
    return {};
  }
  const int preamble = 2 + (stream[CS_HEAD_SIZE] & 3);
  Bytes blocks;
  for (std::size_t n = CS_HEAD_SIZE; n < stream.size(); ++n) {
    const int next = n + 1 < stream.size() ? stream[n + 1] : 0;
    blocks.push_back(static_cast<std::uint8_t>((stream[n] | next << 8) >> preamble));
  }
  Bytes data(declared + 1);
  z_stream inflater{};
  EXPECT_EQ(inflateInit2(&inflater, -15), Z_OK);
  inflater.next_in = blocks.data();
  inflater.avail_in = static_cast<uInt>(blocks.size());
  inflater.next_out = data.data();
  inflater.avail_out = static_cast<uInt>(data.size());
  EXPECT_EQ(inflate(&inflater, Z_FINISH), Z_STREAM_END) << (inflater.msg != nullptr ? inflater.msg : "");
  data.resize(inflater.total_out);
  const std::size_t used = inflater.total_in;
  inflateEnd(&inflater);

  // The blocks end inside byte `used`, or inside the one after it once shifted back; the zero byte follows.
  const std::size_t body = stream.size() - CS_HEAD_SIZE - 1;
  EXPECT_TRUE(body == used || body == used + 1) << body << " bytes hold blocks of " << used;
  EXPECT_EQ(stream.back(), 0);
  return data;
}

constexpr int Level(int level) {
  return CS_ALGORITHM_LZH | level << CS_LEVEL_SHIFT;
}

TEST(LzhCompress, InflatesToTheInputAtEveryLevelAndSize) {
  Driver driver;
  for (const Kind kind : kAllKinds) {
    for (const std::size_t size : {0,   1,     2,     3,     257,   258,   259,   260,   261,   262,
                                   263, 16122, 16384, 32506, 32768, 32769, 65535, 65536, 65537, 1 << 20}) {
      const Bytes data = MakeData(kind, size);
      for (int level = 1; level <= 9; ++level) {
        const Bytes stream = driver.Compress(data, Level(level)).out;
        ASSERT_EQ(CsRGetLen(stream.data()), static_cast<std::int32_t>(size));
        ASSERT_EQ(stream[4], 0x12);
        ASSERT_EQ(stream[7], level);
        ASSERT_TRUE(InflateBlocks(stream, size) == data) << KindName(kind) << size << " level " << level;
      }
    }
  }
}

TEST(LzhCompress, FullOutputStopsTheCallBehindTheFlush) {
  Driver driver;
  const Bytes data = MakeData(Kind::kRandom, 65536);
  EXPECT_EQ(driver.Compress(65536, data, 100, kLzh), CS_END_OUTBUFFER);
  EXPECT_EQ(driver.read, 32768);  // one window: the block of 16383 items ended inside it
  EXPECT_EQ(driver.Compress(65536, std::span(data).subspan(32768), 1000, kLzh), CS_END_OUTBUFFER);
  EXPECT_EQ(driver.read, 0) << "pending bytes go first";
}

class LzhCompressBits : public testing::Test {
 protected:
  Bytes Compress(const Bytes& data, int level) { return driver_.Compress(data, Level(level)).out; }
  // The reference's account of the stream, after the comparison.
  ReferenceStream Agree(const Bytes& data, int level) {
    const ReferenceStream expected = LzhReference::Compress(data, level);
    const Bytes actual = Compress(data, level);
    EXPECT_EQ(actual.size(), expected.bytes.size());
    EXPECT_TRUE(actual == expected.bytes) << "differs";
    return expected;
  }

  Driver driver_;
};

// Bytes without any trigram twice: no match can be found in them.
Bytes MatchlessData(std::size_t size) {
  Random random(7);
  std::vector<bool> seen(1 << 24);
  Bytes data;
  std::uint32_t trigram = 0;
  while (data.size() < size) {
    const std::uint32_t next = (trigram << 8 | (random() & 0xFF)) & 0xFFFFFF;
    if (seen[next]) continue;
    seen[next] = true;
    trigram = next;
    data.push_back(static_cast<std::uint8_t>(next));
  }
  return data;
}

// Bytes of a small alphabet: many short matches at all distances, close decisions everywhere.
Bytes SmallAlphabet(std::size_t size, std::uint32_t letters, unsigned seed) {
  Random random(seed);
  Bytes data(size);
  for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>('a' + random() % letters);
  return data;
}

TEST_F(LzhCompressBits, AgreeAtEveryLevelKindAndSize) {
  for (const Kind kind : kAllKinds) {
    const Bytes all = MakeData(kind, 150000, 3);
    for (const std::size_t size :
         {0, 1, 2, 3, 4, 100, 262, 5000, 16122, 32506, 32768, 32769, 65536, 150000}) {
      const Bytes data(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(size));
      for (const int level : {1, 2, 3, 4, 6, 9}) {
        if (level == 9 && size > 65536) continue;  // chains of 4096 candidates, a byte at a time
        SCOPED_TRACE(std::string(KindName(kind)) + " " + std::to_string(size) + " level " +
                     std::to_string(level));
        Agree(data, level);
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(LzhCompressBits, PiecesGiveTheSameBits) {
  for (const Kind kind : kAllKinds) {
    for (const std::size_t size : {0, 1, 3, 262, 16384, 32768, 65537, 120000}) {
      const Bytes data = MakeData(kind, size);
      for (const int level : {2, 6}) {
        const Bytes whole = Compress(data, level);
        for (const std::size_t piece : {1, 2, 3, 511, 65536}) {
          for (const std::size_t room : {1, 7, 65536}) {
            ASSERT_TRUE(driver_.Compress(data, Level(level), piece, room).out == whole)
                << KindName(kind) << size << " level " << level << " pieces " << piece << " into " << room;
          }
        }
      }
    }
  }
}

TEST_F(LzhCompressBits, LevelsOutOfRangeMeanTwo) {
  const Bytes data = MakeData(Kind::kText, 50000);
  for (const int level : {0, 10, 15, 16, 1000})
    EXPECT_TRUE(Compress(data, level) == Compress(data, 2)) << level;
}

// What lies behind the end of the input takes part in comparisons: zeros, or old bytes once the window slid.
TEST_F(LzhCompressBits, AgreeWhereverTheInputEnds) {
  int slid = 0;
  for (const std::size_t from : {1, 16380, 32490, 32760, 49130}) {
    for (std::size_t size = from; size < from + 24; ++size) {
      for (const std::uint32_t letters : {1U, 2U, 4U, 20U}) {
        SCOPED_TRACE(std::to_string(size) + " bytes of " + std::to_string(letters) + " letters");
        slid += Agree(SmallAlphabet(size, letters, static_cast<unsigned>(size)), 2).slides;
        Bytes zeros_at_end = SmallAlphabet(size, letters, 5);
        std::fill_n(zeros_at_end.rbegin(), std::min<std::size_t>(size, 9), std::uint8_t{0});
        Agree(zeros_at_end, 2);
        if (HasFailure()) return;
      }
    }
  }
  EXPECT_GT(slid, 0);
}

TEST_F(LzhCompressBits, LongStreamsSlideManyTimes) {
  for (const std::uint32_t letters : {3U, 12U, 90U}) {
    const ReferenceStream stream = Agree(SmallAlphabet(400000, letters, letters), 2);
    EXPECT_GT(stream.slides, 20);
  }
}

TEST_F(LzhCompressBits, BlocksOfLiteralsOnly) {
  for (const std::size_t size : {16381, 16382, 16383, 16384, 16385, 32766, 32767}) {
    const ReferenceStream stream = Agree(MatchlessData(size), 2);
    // The last literal is tallied behind the end of the input, where it asks for no flush.
    const std::size_t blocks = (size - 1) / 16383 + 1;
    EXPECT_EQ(stream.blocks.size(), blocks) << size;
    EXPECT_EQ(stream.blocks[0].items, std::min<std::size_t>(size, 16383));
    EXPECT_EQ(stream.blocks[0].matches, 0U);
  }
}

// The last item of a full block is the last of the input: an empty block follows.
TEST_F(LzhCompressBits, BlockFilledByAMatchAtTheEnd) {
  bool filled = false;
  for (std::size_t literals = 16379; literals <= 16386; ++literals) {
    Bytes data = MatchlessData(literals);
    for (int n = 0; n < 20; ++n) data.push_back(data[data.size() - 1000]);
    const ReferenceStream stream = Agree(data, 2);
    filled |= stream.blocks.size() == 2 && stream.blocks[0].items == 16383 && stream.blocks[1].items == 0;
  }
  EXPECT_TRUE(filled);
}

TEST_F(LzhCompressBits, BlocksOfMatchesOnly) {
  const Bytes zeros(258 * 16400, 0);
  const ReferenceStream stream = Agree(zeros, 2);
  ASSERT_EQ(stream.blocks.size(), 2U);
  EXPECT_EQ(stream.blocks[0].items, 16383U);
  EXPECT_EQ(stream.blocks[0].matches, 16381U);  // position 0 is no candidate, so two literals come first
}

TEST_F(LzhCompressBits, EarlyFlushAboveLevelTwo) {
  Random random(11);
  Bytes data = MatchlessData(2000);
  while (data.size() < 300000) {
    for (int n = 0; n < 3; ++n) data.push_back(static_cast<std::uint8_t>(random()));
    const std::size_t distance = 300 + random() % 1500;
    for (std::size_t n = 20 + random() % 100; n != 0; --n) data.push_back(data[data.size() - distance]);
  }
  for (int level = 1; level <= 9; ++level) {
    const ReferenceStream stream = Agree(data, level);
    const bool early = std::any_of(stream.blocks.begin(), stream.blocks.end() - 1,
                                   [](const ReferenceBlock& block) { return block.items == 4096; });
    EXPECT_EQ(early, level > 2) << level;
  }
}

// Frequencies like the Fibonacci numbers give codes above 15 bits, which the builder has to shorten. The
// bytes are ordered so that hardly a trigram comes twice: matches would spoil the frequencies.
TEST_F(LzhCompressBits, TooLongCodesAreShortened) {
  Bytes data;
  std::size_t count = 1;  // the end of the block also occurs once
  std::size_t next = 2;
  for (int rare = 0; rare < 11; ++rare) {
    data.insert(data.end(), count, static_cast<std::uint8_t>(rare));
    count = std::exchange(next, count + next);
  }
  for (int common = 100; common < 164; ++common)
    data.insert(data.end(), 240, static_cast<std::uint8_t>(common));
  for (unsigned seed = 1; seed <= 8; ++seed) {
    std::shuffle(data.begin(), data.end(), std::mt19937(seed));
    std::vector<bool> seen(1 << 24);
    for (std::size_t at = 2; at < data.size(); ++at) {
      const auto trigram = [&](std::size_t from) {
        return data[at - 2] << 16 | data[at - 1] << 8 | data[from];
      };
      std::size_t from = at;
      while (from + 1 < data.size() && seen[static_cast<std::size_t>(trigram(from))]) ++from;
      std::swap(data[at], data[from]);
      seen[static_cast<std::size_t>(trigram(at))] = true;
    }
    EXPECT_EQ(Agree(data, 1).shortenedLiteralTrees, 1) << seed;
  }
}

TEST_F(LzhCompressBits, RandomMixtures) {
  Random random(99);
  for (int round = 0; round < 150; ++round) {
    Bytes data;
    for (auto parts = 1 + random() % 5; parts != 0; --parts) {
      const unsigned seed = random();
      const std::size_t size = seed % 9000;
      const Bytes part = seed % 3 == 0 ? SmallAlphabet(size, 1 + seed % 30, seed)
                                       : MakeData(kAllKinds[(seed >> 8) % 5], size, seed);
      data.insert(data.end(), part.begin(), part.end());
    }
    SCOPED_TRACE("round " + std::to_string(round));
    Agree(data, 1 + static_cast<int>(random() % 9));
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace tolven::test

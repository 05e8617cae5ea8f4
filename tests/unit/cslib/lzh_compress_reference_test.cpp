// Bit for bit against the second implementation: matches, block boundaries, block types, trees.

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "cslib/lzh_compress.h"
#include "cslib/lzh_compress_driver.h"
#include "cslib/lzh_reference.h"
#include "cslib/sample_data.h"
#include "gtest/gtest.h"

namespace tolven::test {
namespace {

class LzhCompressBits : public testing::Test {
 protected:
  // The reference's account of the stream, after the comparison.
  ReferenceStream Agree(const Bytes& data, int level) {
    const ReferenceStream expected = ReferenceCompress(data, level);
    const Bytes actual = CompressWhole(*state_, data, level);
    EXPECT_EQ(actual.size(), expected.bytes.size());
    EXPECT_TRUE(actual == expected.bytes) << "differs";
    return expected;
  }

  LzhCompressStatePtr state_ = NewLzhCompressState();
};

// Bytes without any trigram twice: no match can be found in them.
Bytes MatchlessData(std::size_t size) {
  std::mt19937 random(7);
  std::vector<bool> seen(1 << 24);
  Bytes data;
  std::uint32_t trigram = 0;
  while (data.size() < size) {
    const std::uint32_t next = (trigram << 8 | (static_cast<std::uint32_t>(random()) & 0xFF)) & 0xFFFFFF;
    if (seen[next]) continue;
    seen[next] = true;
    trigram = next;
    data.push_back(static_cast<std::uint8_t>(next));
  }
  return data;
}

// Bytes of a small alphabet: many short matches at all distances, close decisions everywhere.
Bytes SmallAlphabet(std::size_t size, std::uint32_t letters, std::uint32_t seed) {
  std::mt19937 random(seed);
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

// What lies behind the end of the input takes part in comparisons: zeros, or old bytes once the window slid.
TEST_F(LzhCompressBits, AgreeWhereverTheInputEnds) {
  int slid = 0;
  for (const std::size_t from : {1, 16380, 32490, 32760, 49130}) {
    for (std::size_t size = from; size < from + 24; ++size) {
      for (const std::uint32_t letters : {1U, 2U, 4U, 20U}) {
        SCOPED_TRACE(std::to_string(size) + " bytes of " + std::to_string(letters) + " letters");
        slid += Agree(SmallAlphabet(size, letters, static_cast<std::uint32_t>(size)), 2).slides;
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
  std::mt19937 random(11);
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
  for (std::uint32_t seed = 1; seed <= 8; ++seed) {
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
    EXPECT_EQ(Agree(data, 1).shortened_literal_trees, 1) << seed;
  }
}

TEST_F(LzhCompressBits, RandomMixtures) {
  std::mt19937 random(99);
  for (int round = 0; round < 150; ++round) {
    Bytes data;
    for (auto parts = 1 + random() % 5; parts != 0; --parts) {
      const auto seed = static_cast<std::uint32_t>(random());
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

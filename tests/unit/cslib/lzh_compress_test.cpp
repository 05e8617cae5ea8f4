// The LZH compressor: every stream taken apart by zlib, and its bits (matches, block boundaries, block types,
// trees) as they have always been.

#include <zlib.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cslib/driver.h"

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

TEST(LzhCompress, FullOutputStopsTheCallBehindTheFlush) {
  Driver driver;
  const Bytes data = MakeData(Kind::kRandom, 65536);
  EXPECT_EQ(driver.Compress(65536, data, 100, kLzh), CS_END_OUTBUFFER);
  EXPECT_EQ(driver.read, 32768);  // one window: the block of 16383 items ended inside it
  EXPECT_EQ(driver.Compress(65536, std::span(data).subspan(32768), 1000, kLzh), CS_END_OUTBUFFER);
  EXPECT_EQ(driver.read, 0) << "pending bytes go first";
}

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

// Frequencies like the Fibonacci numbers give codes above 15 bits, which the builder has to shorten. The
// bytes are ordered so that hardly a trigram comes twice: matches would spoil the frequencies.
Bytes FibonacciData(unsigned seed) {
  Bytes data;
  std::size_t count = 1;  // the end of the block also occurs once
  std::size_t next = 2;
  for (int rare = 0; rare < 11; ++rare) {
    data.insert(data.end(), count, static_cast<std::uint8_t>(rare));
    count = std::exchange(next, count + next);
  }
  for (int common = 100; common < 164; ++common)
    data.insert(data.end(), 240, static_cast<std::uint8_t>(common));
  Random random(seed);
  for (std::size_t left = data.size(); left > 1; --left) std::swap(data[left - 1], data[random() % left]);
  std::vector<bool> seen(1 << 24);
  for (std::size_t at = 2; at < data.size(); ++at) {
    const auto trigram = [&](std::size_t from) {
      return static_cast<std::size_t>(data[at - 2] << 16 | data[at - 1] << 8 | data[from]);
    };
    std::size_t from = at;
    while (from + 1 < data.size() && seen[trigram(from)]) ++from;
    std::swap(data[at], data[from]);
    seen[trigram(at)] = true;
  }
  return data;
}

// Writes data and level of every stream of a row.
using Sink = std::function<void(const Bytes&, int)>;

struct PinnedRow {
  const char* what;
  std::uint32_t checksum;  // CRC-32 over all streams
  void (*streams)(const Sink&);
};

// A second compressor, written from the format alone, agreed with every bit of these streams when the
// checksums were taken. Matches, block boundaries, block types and trees are all in them: a change of one is
// a change of what archives look like.
const PinnedRow kPinned[] = {
    {"every kind and size", 0xA339D411,
     [](const Sink& add) {
       for (const Kind kind : kAllKinds) {
         const Bytes all = MakeData(kind, 150000, 3);
         for (const int size : {0, 1, 2, 3, 4, 100, 262, 5000, 16122, 32506, 32768, 32769, 65536, 150000}) {
           for (const int level : {1, 2, 3, 4, 6, 9}) add(Bytes(all.begin(), all.begin() + size), level);
         }
       }
     }},
    // What lies behind the end takes part in comparisons: zeros, or old bytes once the window slid.
    {"wherever the input ends", 0x1BE3DD82,
     [](const Sink& add) {
       for (const std::size_t from : {1, 16380, 32490, 32760, 49130}) {
         for (std::size_t size = from; size < from + 24; ++size) {
           for (const std::uint32_t letters : {1U, 2U, 4U, 20U}) {
             add(SmallAlphabet(size, letters, static_cast<unsigned>(size)), 2);
             Bytes zerosAtEnd = SmallAlphabet(size, letters, 5);
             std::fill_n(zerosAtEnd.rbegin(), std::min<std::size_t>(size, 9), std::uint8_t{0});
             add(zerosAtEnd, 2);
           }
         }
       }
     }},
    {"a window that slides often", 0xE8FE2D68,
     [](const Sink& add) {
       for (const std::uint32_t letters : {3U, 12U, 90U}) add(SmallAlphabet(400000, letters, letters), 2);
     }},
    // The last literal is tallied behind the end of the input, where it asks for no flush.
    {"literals only, blocks of 16383", 0xDDC465F5,
     [](const Sink& add) {
       for (const std::size_t size : {16381, 16382, 16383, 16384, 16385, 32766, 32767})
         add(MatchlessData(size), 2);
     }},
    {"an empty block behind one that the last match fills", 0x289A15B3,
     [](const Sink& add) {
       for (std::size_t literals = 16379; literals <= 16386; ++literals) {
         Bytes data = MatchlessData(literals);
         for (int n = 0; n < 20; ++n) data.push_back(data[data.size() - 1000]);
         add(data, 2);
       }
     }},
    {"matches only", 0x957E14C0, [](const Sink& add) { add(Bytes(258 * 16400, 0), 2); }},
    {"blocks that end early, above level 2", 0x87EB6E96,
     [](const Sink& add) {
       Random random(11);
       Bytes data = MatchlessData(2000);
       while (data.size() < 300000) {
         for (int n = 0; n < 3; ++n) data.push_back(static_cast<std::uint8_t>(random()));
         const std::size_t distance = 300 + random() % 1500;
         for (std::size_t n = 20 + random() % 100; n != 0; --n) data.push_back(data[data.size() - distance]);
       }
       for (int level = 1; level <= 9; ++level) add(data, level);
     }},
    {"codes above 15 bits", 0xB9656749,
     [](const Sink& add) {
       for (unsigned seed = 1; seed <= 8; ++seed) add(FibonacciData(seed), 1);
     }},
    {"mixtures", 0xAF47AC79,
     [](const Sink& add) {
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
         add(data, 1 + static_cast<int>(random() % 9));
       }
     }},
};

class LzhCompressBits : public testing::Test {
 protected:
  Bytes Compress(const Bytes& data, int level) { return driver_.Compress(data, Level(level)).out; }

  Driver driver_;
};

TEST_F(LzhCompressBits, StayAsTheyWere) {
  for (const PinnedRow& row : kPinned) {
    uLong checksum = 0;
    row.streams([&](const Bytes& data, int level) {
      const Bytes stream = Compress(data, level);
      checksum = ::crc32(checksum, stream.data(), static_cast<uInt>(stream.size()));
      ASSERT_EQ(CsRGetLen(stream.data()), static_cast<std::int32_t>(data.size()));
      ASSERT_EQ((Bytes{stream[4], stream[7]}), (Bytes{0x12, static_cast<std::uint8_t>(level)}));
      ASSERT_TRUE(InflateBlocks(stream, data.size()) == data) << row.what;
    });
    EXPECT_EQ(checksum, row.checksum) << row.what;
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

}  // namespace
}  // namespace tolven::test

// The LZH decompressor on good streams that zlib made, cut everywhere; and with streams that use up every
// margin of its fast loop: enough bits after a refill, enough input for its loads, enough room for its
// copies.

#include "cslib/driver.h"
#include "cslib/lzh_decompress_reference.h"
#include "cslib/streams.h"

namespace tolven::test {
namespace {

struct Sample {
  const char* name;
  Bytes (*make)(std::size_t);
};
constexpr Sample kSamples[] = {
    {"text", [](std::size_t size) { return MakeData(Kind::kText, size); }},
    {"binary", [](std::size_t size) { return MakeData(Kind::kBinary, size); }},
    {"zeros", [](std::size_t size) { return Bytes(size); }},
    {"noise", [](std::size_t size) { return MakeData(Kind::kSkewed, size); }},
    {"period 2", [](std::size_t size) { return Periodic(size, 2); }},
    {"period 5", [](std::size_t size) { return Periodic(size, 5); }},
    {"period 11", [](std::size_t size) { return Periodic(size, 11); }},
    {"period 16122", [](std::size_t size) { return Periodic(size, 16122); }},
};

TEST(LzhDecompress, WholeStreamsOfEveryStrategyAndSize) {
  Driver fastest, portable(FastLoop::kPortable);
  int decoded = 0;
  for (const Sample& sample : kSamples) {
    for (const std::size_t size :
         {0,     1,     2,     3,     257,   258,   259,   260,   261,    262,    16122,
          16383, 16384, 16385, 32506, 32768, 65535, 65536, 65537, 131072, 1 << 20}) {
      const Bytes data = sample.make(size);
      for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED, Z_HUFFMAN_ONLY, Z_RLE}) {
        const auto stream = ZlibStream(data, 6, strategy, static_cast<unsigned>(size % 4));
        if (!stream) continue;
        for (Driver* driver : {&fastest, &portable}) {
          const Outcome outcome = driver->Decompress(*stream, 1 << 20, 1 << 20);
          ASSERT_EQ(outcome.rc, CS_END_OF_STREAM) << sample.name << ' ' << size << ' ' << strategy;
          ASSERT_TRUE(outcome.out == data) << sample.name << ' ' << size << ' ' << strategy;
        }
        ++decoded;
      }
    }
  }
  EXPECT_GT(decoded, 500);  // zlib stores only a few of them
}

TEST(LzhDecompress, PiecesOfInputAndOutput) {
  Driver driver;
  for (const Sample& sample : kSamples) {
    for (const std::size_t size : {262U, 16384U, 65537U, 300000U}) {
      const Bytes data = sample.make(size);
      const auto stream = ZlibStream(data, 1 + static_cast<int>(size % 9), Z_DEFAULT_STRATEGY, 3);
      if (!stream) continue;
      for (const std::size_t piece : {1U, 2U, 3U, 511U, 65536U}) {
        for (const std::size_t room : {1U, 7U, 300U, 8192U, 16383U, 65535U}) {
          if (size > 65537 && (piece < 511 || room < 300)) continue;
          const Outcome outcome = driver.Decompress(*stream, piece, room);
          ASSERT_EQ(outcome.rc, CS_END_OF_STREAM)
              << sample.name << ' ' << size << ' ' << piece << ' ' << room;
          ASSERT_TRUE(outcome.out == data) << sample.name << ' ' << size << ' ' << piece << ' ' << room;
        }
      }
    }
  }
}

// Small streams end up in the careful path, larger ones cross from one path to the other wherever they are
// cut.
TEST(LzhDecompress, InputCutAtEveryPosition) {
  Driver driver;
  for (const std::size_t size : {40U, 300U, 9000U}) {
    const Bytes data = MakeData(Kind::kText, size);
    for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED}) {
      const Bytes stream = *ZlibStream(data, 6, strategy, 1);
      for (std::size_t cut = CS_HEAD_SIZE; cut < stream.size(); ++cut) {
        driver.Restart();
        int rc = driver.Decompress(std::span(stream).first(cut), size);
        if (rc == CS_END_INBUFFER) {
          rc = driver.Decompress(std::span(stream).subspan(cut), size - driver.out.size());
        } else {
          ASSERT_GE(cut, stream.size() - 2) << "only zlib's padding and the last zero byte are not needed";
        }
        ASSERT_EQ(rc, CS_END_OF_STREAM) << size << ' ' << cut;
        ASSERT_TRUE(driver.out == data) << size << ' ' << cut;
      }
    }
  }
}

TEST(LzhDecompress, OutputCutAtEveryPosition) {
  Driver driver;
  for (const Sample& sample : kSamples) {
    const Bytes data = sample.make(3000);
    const Bytes stream = *ZlibStream(data);
    for (std::size_t cut = 0; cut < data.size(); ++cut) {
      driver.Restart();
      ASSERT_EQ(driver.Decompress(stream, cut), CS_END_OUTBUFFER);
      const auto read = static_cast<std::size_t>(driver.read);
      ASSERT_EQ(driver.Decompress(std::span(stream).subspan(read), data.size() - cut), CS_END_OF_STREAM);
      ASSERT_TRUE(driver.out == data) << sample.name << ' ' << cut;
    }
  }
}

TEST(LzhDecompress, FarthestDistanceAcrossCallsAndWithinOne) {
  // 16384 literals, then a match that reaches back to the very first of them.
  const Bytes head = MakeData(Kind::kSkewed, 16384);
  Bytes data = head;
  data.insert(data.end(), head.begin(), head.begin() + 258);
  BitWriter writer(static_cast<std::uint32_t>(data.size()));
  writer.FixedBlock(true);
  for (const std::uint8_t byte : head) writer.Fixed(byte);
  writer.Fixed(285).Code(27, 5).Put(16384 - 12289, 12).Fixed(256);
  const Bytes stream = writer.Take();
  Driver driver;
  for (const std::size_t room : {1U, 100U, 8192U, 16383U, 16384U, 16385U, 16500U, 70000U}) {
    const Outcome outcome = driver.Decompress(stream, 70000, room);
    ASSERT_EQ(outcome.rc, CS_END_OF_STREAM) << room;
    ASSERT_TRUE(outcome.out == data) << room;
  }
}

// --- The margins of the fast loop

using Lengths = std::vector<std::uint8_t>;

// The canonical code of a set of lengths.
class Encoder {
 public:
  explicit Encoder(const Lengths& lengths) : lengths_(lengths), codes_(lengths.size()) {
    std::uint32_t next = 0;
    for (unsigned length = 1; length <= 15; ++length, next <<= 1) {
      for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
        if (lengths[symbol] == length) codes_[symbol] = next++;
      }
    }
  }
  void Put(BitWriter& writer, std::size_t symbol) const { writer.Code(codes_[symbol], lengths_[symbol]); }

 private:
  Lengths lengths_;
  std::vector<std::uint32_t> codes_;
};

// One block with literals of `literalBits`, and lengths and distances of 15 bits; the symbols are drawn
// without regard to that. Two literals and a match may take 69 bits, more than the bit buffer holds.
Bytes LongCodes(std::uint8_t literalBits, unsigned seed) {
  constexpr std::size_t kSize = 30000;
  Lengths litLen(286, literalBits), dist(28, 15);
  std::fill(litLen.begin() + 257, litLen.end(), std::uint8_t{15});
  litLen['a'] = 1;
  dist[seed % 28] = 1;
  const Encoder litLenCode(litLen), distCode(dist);
  Random random(seed);
  BitWriter writer(0, seed % 4);
  writer.DynamicBlock(true, litLen, dist);
  std::size_t size = 0;
  while (size < kSize) {
    if (size < 2 || random() % 3 != 0) {
      litLenCode.Put(writer, random() % 256);
      ++size;
      continue;
    }
    const unsigned code = random() % 29, extra = code < 8 || code == 28 ? 0 : (code - 4) / 4;
    const unsigned bits = random() & ((1U << extra) - 1);
    litLenCode.Put(writer, 257 + code);
    writer.Put(bits, extra);
    size += code == 28 ? 258 : (code < 8 ? code + 3 : ((4 + code % 4) << extra) + 3) + bits;
    // Any distance once there is a whole window behind.
    const unsigned far = random() % (size < 17000 ? 2 : 28), farExtra = far < 4 ? 0 : (far - 2) / 2;
    distCode.Put(writer, far);
    writer.Put(random() & ((1U << farExtra) - 1), farExtra);
  }
  litLenCode.Put(writer, 256);
  Bytes stream = writer.Take();
  for (unsigned i = 0; i < 4; ++i) stream[i] = static_cast<std::uint8_t>(size >> (8 * i));
  return stream;
}

class LzhMargins : public ::testing::TestWithParam<FastLoop> {};
INSTANTIATE_TEST_SUITE_P(FastLoops, LzhMargins, ::testing::ValuesIn(kFastLoops));

TEST_P(LzhMargins, LongCodesInARow) {
  Driver driver(GetParam());
  for (unsigned seed = 0; seed < 60; ++seed) {
    const Bytes stream = LongCodes(seed % 2 == 0 ? 11 : 15, seed);
    const Outcome expected = Reference::Decode(stream);
    ASSERT_EQ(expected.rc, CS_END_OF_STREAM) << seed;
    for (const std::size_t room : {40000U, 5000U}) {
      const Outcome outcome = driver.Decompress(stream, 1 << 20, room);
      ASSERT_EQ(outcome.rc, CS_END_OF_STREAM) << seed;
      ASSERT_TRUE(outcome.out == expected.out) << seed;
    }
  }
}

TEST_P(LzhMargins, InputThatEndsAnywhereAmongLongCodes) {
  Driver driver(GetParam());
  for (const std::uint8_t literalBits : {std::uint8_t{11}, std::uint8_t{15}}) {
    const Bytes stream = LongCodes(literalBits, 1);
    const Outcome expected = Reference::Decode(stream);
    for (std::size_t length = 100; length < 1500; ++length) {
      const Bytes cut(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(length));
      const Outcome outcome = driver.Decompress(cut, 1 << 20, 40000);
      ASSERT_EQ(outcome.rc, CS_END_INBUFFER) << length;
      ASSERT_TRUE(std::equal(outcome.out.begin(), outcome.out.end(), expected.out.begin())) << length;
    }
  }
}

TEST_P(LzhMargins, RoomThatEndsAnywhereAmongLongMatches) {
  Driver driver(GetParam());
  for (const std::size_t period : {1U, 2U, 7U, 8U, 39U, 40U, 1000U}) {
    const Bytes data = Periodic(200000, period);
    const Bytes stream = *ZlibStream(data);
    for (std::size_t room = 0; room < 1200; ++room) {
      driver.Restart();
      ASSERT_EQ(driver.Decompress(stream, room), CS_END_OUTBUFFER) << period << ' ' << room;
      ASSERT_TRUE(std::equal(driver.out.begin(), driver.out.end(), data.begin())) << period << ' ' << room;
    }
  }
}

}  // namespace
}  // namespace tolven::test

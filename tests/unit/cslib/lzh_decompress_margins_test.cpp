// The fast loop takes its margins for granted: enough bits after a refill, enough input for its loads, enough
// room for its copies. These streams use up each of them.

#include <gtest/gtest.h>

#include "cslib/lzh_decompress_driver.h"
#include "cslib/lzh_decompress_reference.h"
#include "cslib/lzh_test_streams.h"

namespace tolven::lzhtest {
namespace {

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
      const Outcome outcome = driver.Decode(stream, 1 << 20, room);
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
      const Outcome outcome = driver.Decode(cut, 1 << 20, 40000);
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
      ASSERT_EQ(driver.Call(stream.data(), stream.size(), room), CS_END_OUTBUFFER) << period << ' ' << room;
      ASSERT_TRUE(std::equal(driver.out.begin(), driver.out.end(), data.begin())) << period << ' ' << room;
    }
  }
}

}  // namespace
}  // namespace tolven::lzhtest

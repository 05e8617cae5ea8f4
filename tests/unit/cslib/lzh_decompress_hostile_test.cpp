// Streams no compressor writes: every refusal, and a great many broken streams that must come to the same end
// in the decompressor and in the plain reference decoder, whole or in pieces.

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <functional>

#include "cslib/driver.h"
#include "cslib/lzh_decode_table.h"
#include "cslib/lzh_decompress_reference.h"
#include "cslib/streams.h"

namespace tolven::test {
namespace {

using Lengths = std::vector<std::uint8_t>;

Lengths Only(std::size_t symbols, std::initializer_list<std::pair<std::size_t, std::uint8_t>> used) {
  Lengths lengths(symbols);
  for (const auto& [symbol, length] : used) lengths[symbol] = length;
  return lengths;
}

// Decodes whole, byte by byte, and with one byte of room; all must come to the same end as the reference.
void ExpectAgreement(Driver& driver, const Bytes& stream, const char* what) {
  static Driver portable(FastLoop::kPortable);
  const Outcome expected = Reference::Decode(stream);
  for (const auto& [piece, room] :
       {std::pair<std::size_t, std::size_t>{1 << 20, 70000}, {1, 70000}, {1 << 20, 1}, {13, 97}}) {
    for (Driver* each : {&driver, &portable}) {
      const Outcome outcome = each->Decompress(stream, piece, room);
      ASSERT_EQ(outcome.rc, expected.rc) << what << ' ' << piece << ' ' << room;
      ASSERT_TRUE(outcome.out == expected.out) << what << ' ' << piece << ' ' << room;
    }
  }
}

struct Row {
  const char* what;
  int rc;
  std::function<void(BitWriter&)> write;
};

TEST(LzhHostile, EveryRefusal) {
  const Lengths anyDist = Only(1, {{0, 1}});
  const Lengths anyLitLen = Only(257, {{'a', 1}, {256, 1}});
  // The counts of a dynamic block and the lengths of its bit-length code, in the order in which they are
  // sent.
  const auto dynamic = [](BitWriter& w, unsigned litLen, unsigned dist, auto... lengths) -> BitWriter& {
    w.Put(1, 1).Put(2, 2).Put(litLen - 257, 5).Put(dist - 1, 5).Put(sizeof...(lengths) - 4, 4);
    (w.Put(static_cast<unsigned>(lengths), 3), ...);
    return w;
  };
  const std::vector<Row> rows = {
      {"stored block", CS_E_UNKNOWN_TYPE, [](BitWriter& w) { w.Put(1, 1).Put(0, 2); }},
      {"block type 3", CS_E_UNKNOWN_TYPE, [](BitWriter& w) { w.Put(1, 1).Put(3, 2); }},
      {"stored block behind a good one", CS_E_UNKNOWN_TYPE,
       [](BitWriter& w) { w.FixedBlock(false).Fixed('a').Fixed(256).Put(0, 3); }},
      {"287 literal/length codes", CS_E_BAD_HEADER, [&](BitWriter& w) { dynamic(w, 287, 1, 0, 0, 0, 1); }},
      {"31 distance codes", CS_E_BAD_HEADER, [&](BitWriter& w) { dynamic(w, 257, 31, 0, 0, 0, 1); }},
      {"no bit-length code", CS_E_TREE, [&](BitWriter& w) { dynamic(w, 257, 1, 0, 0, 0, 0); }},
      {"too many bit-length codes", CS_E_TREE, [&](BitWriter& w) { dynamic(w, 257, 1, 1, 1, 1, 0); }},
      {"unassigned bit-length code", CS_E_BAD_CODE,
       [&](BitWriter& w) { dynamic(w, 257, 1, 1, 0, 0, 0).Code(1, 1); }},
      {"repeat before the first length", CS_E_BAD_CODE,
       [&](BitWriter& w) { dynamic(w, 257, 1, 1, 0, 1, 0).Code(0, 1).Put(0, 2); }},
      {"zeros beyond the count", CS_E_BAD_CODE,
       [&](BitWriter& w) { dynamic(w, 257, 1, 1, 0, 1, 0).Code(1, 1).Put(127, 7).Code(1, 1).Put(127, 7); }},
      {"repeat beyond the count", CS_E_BAD_CODE,
       [&](BitWriter& w) {
         dynamic(w, 257, 1, 1, 0, 1, 0)
             .Code(1, 1)
             .Put(127, 7)
             .Code(1, 1)
             .Put(119 - 11, 7)
             .Code(0, 1)
             .Put(0, 2);
         for (int i = 0; i < 3; ++i) w.Code(0, 1).Put(3, 2);
       }},
      {"no literal/length code", CS_E_TREE,
       [&](BitWriter& w) { w.DynamicBlock(true, Lengths(257), anyDist); }},
      {"no distance code", CS_E_TREE, [&](BitWriter& w) { w.DynamicBlock(true, anyLitLen, Lengths(1)); }},
      {"too many literal/length codes", CS_E_TREE,
       [&](BitWriter& w) {
         w.DynamicBlock(true, Only(257, {{1, 1}, {2, 1}, {3, 15}}), anyDist);
       }},
      {"too many distance codes", CS_E_TREE,
       [&](BitWriter& w) {
         w.DynamicBlock(true, anyLitLen, Only(3, {{0, 1}, {1, 1}, {2, 1}}));
       }},
      {"unassigned literal/length code", CS_E_BAD_CODE,
       [&](BitWriter& w) {
         w.DynamicBlock(true, Only(257, {{'a', 2}, {256, 2}}), anyDist).Code(0, 2).Code(1, 1);
       }},
      {"unassigned distance code", CS_E_BAD_CODE,
       [&](BitWriter& w) {
         w.DynamicBlock(true, Only(258, {{'a', 1}, {257, 2}, {256, 2}}), anyDist);
         w.Code(0, 1).Code(3, 2).Code(1, 1);
       }},
      {"length code 286", CS_E_BAD_CODE,
       [](BitWriter& w) { w.FixedBlock(true).Fixed('a').Fixed(286).Code(0, 5); }},
      {"length code 287", CS_E_BAD_CODE,
       [](BitWriter& w) { w.FixedBlock(true).Fixed('a').Fixed(287).Code(0, 5); }},
      {"distance code 30", CS_E_BAD_CODE,
       [](BitWriter& w) { w.FixedBlock(true).Fixed('a').Fixed(257).Code(30, 5); }},
      {"distance code 31", CS_E_BAD_CODE,
       [](BitWriter& w) { w.FixedBlock(true).Fixed('a').Fixed(257).Code(31, 5); }},
      {"match before any output", CS_E_BAD_CODE,
       [](BitWriter& w) { w.FixedBlock(true).Fixed(257).Code(0, 5); }},
      {"match before the output", CS_E_BAD_CODE,
       [](BitWriter& w) { w.FixedBlock(true).Fixed('a').Fixed(257).Code(1, 5); }},
      {"match behind the window", CS_E_BAD_CODE,
       [](BitWriter& w) {
         w.FixedBlock(true);
         for (int i = 0; i < 17000; ++i) w.Fixed('a');
         w.Fixed(257).Code(28, 5).Put(0, 13);
       }},
      {"literal beyond the length", CS_E_BAD_CODE,
       [](BitWriter& w) {
         w.FixedBlock(true);
         for (int i = 0; i < 20001; ++i) w.Fixed('a');
       }},
      {"match beyond the length", CS_E_BAD_CODE,
       [](BitWriter& w) {
         w.FixedBlock(true);
         for (int i = 0; i < 19998; ++i) w.Fixed('a');
         w.Fixed(257).Code(0, 5).Fixed(256);
       }},
      {"end before the length", CS_OK, [](BitWriter& w) { w.FixedBlock(true).Fixed('a').Fixed(256); }},
      {"incomplete codes, only their good part used", CS_END_OF_STREAM,
       [](BitWriter& w) {
         // One length code of 15 bits behind everything else, one distance code of 15 bits.
         w.DynamicBlock(true, Only(286, {{'a', 9}, {256, 12}, {285, 15}}), Only(30, {{0, 15}}));
         for (int i = 0; i < 134; ++i) w.Code(0, 9);
         for (int i = 0; i < 77; ++i) w.Code(0x48, 15).Code(0, 15);
         w.Code(8, 12);
       }},
  };
  Driver driver;
  for (const Row& row : rows) {
    BitWriter writer(20000);
    row.write(writer);
    // Bits behind the refusal, so that it is not taken for the end of input.
    const Bytes stream = writer.Put(0, 64).Take();
    ASSERT_EQ(driver.Decompress(stream, 1 << 20, 70000).rc, row.rc) << row.what;
    ExpectAgreement(driver, stream, row.what);
  }
}

TEST(LzhHostile, EveryBitFlippedAgreesWithTheReference) {
  Driver driver;
  for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED}) {
    const Bytes stream = *ZlibStream(MakeData(Kind::kText, 400), 6, strategy);
    for (std::size_t bit = 8 * CS_HEAD_SIZE; bit < stream.size() * 8; ++bit) {
      Bytes broken = stream;
      broken[bit / 8] = static_cast<std::uint8_t>(broken[bit / 8] ^ 1U << (bit % 8));
      const Outcome expected = Reference::Decode(broken);
      const Outcome outcome = driver.Decompress(broken, 1 << 20, 400);
      ASSERT_EQ(outcome.rc, expected.rc) << bit;
      ASSERT_TRUE(outcome.out == expected.out) << bit;
    }
  }
}

// A random set of code lengths, mostly incomplete, now and then over-subscribed, with a bias to long codes.
Lengths RandomLengths(Random& random, std::size_t symbols) {
  Lengths lengths(symbols);
  const unsigned shortest = 1 + random() % 12;
  std::uint32_t left = 1U << 15;
  for (std::size_t i = 0, codes = 1 + random() % symbols; i < codes; ++i) {
    const auto length = static_cast<std::uint8_t>(shortest + random() % (16 - shortest));
    if ((1U << (15 - length)) > left && random() % 200 != 0) continue;
    left -= std::min(left, 1U << (15 - length));
    lengths[random() % symbols] = length;
  }
  return lengths;
}

// Gives unused literals the codes that are left over.
void Complete(Lengths& lengths) {
  std::int32_t left = 1 << 15;
  for (const std::uint8_t length : lengths) left -= length == 0 ? 0 : 1 << (15 - length);
  for (std::uint8_t& length : lengths) {
    if (left <= 0) return;
    if (length == 0) {
      length = static_cast<std::uint8_t>(16 - std::bit_width(static_cast<unsigned>(left)));
      left -= 1 << (15 - length);
    }
  }
}

TEST(LzhHostile, RandomCodesAndBitsAgreeWithTheReference) {
  Random random(11);
  Driver driver;
  std::array<int, 256> ends{};
  for (int i = 0; i < 2000; ++i) {
    BitWriter writer(random() % 3000, random() % 4);
    Lengths litLen = RandomLengths(random, 257 + random() % 30);
    Lengths dist = RandomLengths(random, 1 + random() % 30);
    if (random() % 2 != 0) {
      // Every pattern a code, few of them matches, and those from nearby: such streams run through the fast
      // loop.
      litLen = RandomLengths(random, 256);
      litLen.insert(litLen.end(), {0, 0, 0, 6});
      Complete(litLen);
      dist.assign({2, 2, 2, 2});
    }
    writer.DynamicBlock(random() % 2 != 0, litLen, dist);
    for (auto n = random() % 300; n > 0; --n) writer.Put(random(), 8);
    const Bytes stream = writer.Take();
    ASSERT_NO_FATAL_FAILURE(ExpectAgreement(driver, stream, "random")) << i;
    ++ends[static_cast<std::uint8_t>(driver.Decompress(stream, 1 << 20, 3000).rc)];
  }
  // The mixture really meets what it is meant to meet.
  for (const int rc : {CS_END_INBUFFER, CS_E_TREE, CS_E_BAD_CODE}) {
    EXPECT_GT(ends[static_cast<std::uint8_t>(rc)], 50) << rc;
  }
}

// What the static sizes of the pools promise: no set of lengths needs more entries. With less there is a
// refusal.
TEST(LzhDecodeTable, SetsOfLengthsAndTheirPools) {
  Random random(13);
  std::vector<lzh::Entry> litLen(lzh::kLitLenPool), dist(lzh::kDistPool);
  int built = 0;
  lzh::DecodeTable table;
  for (int i = 0; i < 20000; ++i) {
    int rc = lzh::BuildDecodeTable(RandomLengths(random, 286), lzh::kLitLenResults.data(),
                                   lzh::kLitLenRootBits, litLen, table);
    ASSERT_TRUE(rc == CS_OK || rc == CS_E_TREE) << i;
    built += rc == CS_OK;
    rc = lzh::BuildDecodeTable(RandomLengths(random, 30), lzh::kDistResults.data(), lzh::kDistRootBits, dist,
                               table);
    ASSERT_TRUE(rc == CS_OK || rc == CS_E_TREE) << i;
  }
  EXPECT_GT(built, 1000);
  const auto build = [&](const Lengths& lengths, std::size_t entries) {
    return lzh::BuildDecodeTable(lengths, lzh::kLitLenResults.data(), 8, std::span(litLen).first(entries),
                                 table);
  };
  EXPECT_EQ(build({1, 8}, 255), CS_E_TABLE_POOL);
  EXPECT_EQ(build({1, 8}, 256), CS_OK);
  EXPECT_EQ(build({1, 9}, 256), CS_E_TABLE_POOL) << "no room for the sub-table";
  EXPECT_EQ(build({1, 16}, 256), CS_E_TREE);
}

}  // namespace
}  // namespace tolven::test

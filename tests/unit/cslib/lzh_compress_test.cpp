#include "cslib/lzh_compress.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>

#include "cslib/lzh_compress_driver.h"
#include "cslib/sample_data.h"
#include "gtest/gtest.h"

namespace tolven::test {
namespace {

class LzhCompress : public testing::Test {
 protected:
  // One call with the result checked; the two counts are kept.
  int Call(std::int32_t total, const Bytes& in, std::int32_t room, int options) {
    out_.assign(static_cast<std::size_t>(room), 0xAA);
    return CsRComprLZH(*state_, total, in.data(), static_cast<std::int32_t>(in.size()), out_.data(), room,
                       options, true, &read_, &written_);
  }

  LzhCompressStatePtr state_ = NewLzhCompressState();
  Bytes out_;
  std::int32_t read_ = -1;
  std::int32_t written_ = -1;
};

constexpr std::size_t kSizes[] = {0,   1,     2,     3,     257,   258,   259,   260,   261,   262,
                                  263, 16122, 16384, 32506, 32768, 32769, 65535, 65536, 65537, 1 << 20};

TEST_F(LzhCompress, InflatesToTheInputAtEveryLevelAndSize) {
  for (const Kind kind : kAllKinds) {
    const Bytes all = MakeData(kind, 1 << 20);
    for (const std::size_t size : kSizes) {
      const Bytes data(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(size));
      for (int level = 1; level <= 9; ++level) {
        SCOPED_TRACE(std::string(KindName(kind)) + " " + std::to_string(size) + " level " +
                     std::to_string(level));
        const Bytes stream = CompressWhole(*state_, data, level, false);
        ASSERT_EQ(CsRGetLen(stream.data()), static_cast<std::int32_t>(size));
        ASSERT_EQ(stream[4], 0x12);
        ASSERT_EQ(stream[7], level);
        ASSERT_TRUE(InflateBlocks(stream, size) == data);
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(LzhCompress, PiecesGiveTheSameBits) {
  const LzhCompressStatePtr other = NewLzhCompressState();
  for (const Kind kind : kAllKinds) {
    for (const std::size_t size : {0, 1, 3, 262, 16384, 32768, 65537, 120000}) {
      const Bytes data = MakeData(kind, size);
      for (const int level : {2, 6}) {
        const Bytes whole = CompressWhole(*other, data, level);
        for (const std::size_t piece : {1, 2, 3, 511, 65536}) {
          for (const std::size_t room : {1, 7, 65536}) {
            SCOPED_TRACE(std::string(KindName(kind)) + " " + std::to_string(size) + " level " +
                         std::to_string(level) + " pieces of " + std::to_string(piece) + " into " +
                         std::to_string(room));
            ASSERT_TRUE(CompressInPieces(*state_, data, LzhOptions(level), piece, room) == whole);
            if (HasFailure()) return;
          }
        }
      }
    }
  }
}

TEST_F(LzhCompress, LevelsOutOfRangeMeanTwo) {
  const Bytes data = MakeData(Kind::kText, 50000);
  const Bytes expected = CompressWhole(*state_, data, 2);
  for (const int level : {0, 10, 15, 16, 1000}) {
    EXPECT_TRUE(CompressWhole(*state_, data, level) == expected) << level;
  }
}

TEST_F(LzhCompress, ChecksumBitGoesIntoTheHeaderOnly) {
  const Bytes data = MakeData(Kind::kText, 5000);
  Bytes plain = CompressWhole(*state_, data, 2);
  const Bytes framed = CompressInPieces(*state_, data, LzhOptions(2) | CS_CHECKSUM, data.size(), 20000);
  EXPECT_EQ(framed[4], 0x1A);
  plain[4] = 0x1A;
  EXPECT_TRUE(framed == plain);
}

TEST_F(LzhCompress, StartCallErrors) {
  EXPECT_EQ(Call(3, {1, 2, 3}, 7, LzhOptions(2)), CS_E_OUT_BUFFER_LEN);
  EXPECT_EQ(read_ + written_, 0);
  EXPECT_EQ(Call(3, {1, 2, 3}, 100, LzhOptions(2) & ~CS_INIT), CS_E_INVALID_LEN) << "nothing was started";
  EXPECT_EQ(Call(-1, {1, 2, 3}, 100, LzhOptions(2)), CS_E_INVALID_LEN);
  EXPECT_EQ(read_ + written_, 0);
}

TEST_F(LzhCompress, HeaderAloneReadsNothing) {
  EXPECT_EQ(Call(3, {1, 2, 3}, 8, LzhOptions(2)), CS_END_OUTBUFFER);
  EXPECT_EQ(read_, 0);
  EXPECT_EQ(written_, 8);
  EXPECT_EQ(Call(3, {1, 2, 3}, 100, LzhOptions(2) & ~CS_INIT), CS_END_OF_STREAM);
  EXPECT_EQ(read_, 3);
}

TEST_F(LzhCompress, InputBeyondTheDeclaredLengthIsLeft) {
  EXPECT_EQ(Call(4, {1, 2, 3, 4, 5, 6}, 100, LzhOptions(2)), CS_END_OF_STREAM);
  EXPECT_EQ(read_, 4);
  EXPECT_EQ(Call(4, {5, 6}, 100, LzhOptions(2) & ~CS_INIT), CS_END_OF_STREAM)
      << "and still when called again";
  EXPECT_EQ(read_ + written_, 0);
}

TEST_F(LzhCompress, FullOutputStopsTheCallBehindTheFlush) {
  const Bytes data = MakeData(Kind::kRandom, 65536);
  EXPECT_EQ(Call(65536, data, 100, LzhOptions(2)), CS_END_OUTBUFFER);
  EXPECT_EQ(read_, 32768);  // one window: the block of 16383 items ended inside it
  EXPECT_EQ(written_, 100);
  const Bytes rest(data.begin() + read_, data.end());
  EXPECT_EQ(Call(65536, rest, 1000, LzhOptions(2) & ~CS_INIT), CS_END_OUTBUFFER);
  EXPECT_EQ(read_, 0) << "pending bytes go first";
  EXPECT_EQ(written_, 1000);
}

TEST_F(LzhCompress, AStartCallForgetsAnAbandonedStream) {
  const LzhCompressStatePtr fresh = NewLzhCompressState();
  const Bytes noise = MakeData(Kind::kRandom, 65536);
  for (const std::size_t size : {0, 1, 2, 3, 100, 20000, 32767, 50000}) {
    const Bytes data = MakeData(Kind::kZeros, size);
    // Abandoned with output pending, a dirty window, and bits in the register.
    ASSERT_EQ(Call(65536, noise, 20, LzhOptions(9)), CS_END_OUTBUFFER);
    EXPECT_TRUE(CompressWhole(*state_, data, 2) == CompressWhole(*fresh, data, 2)) << size;
    // Abandoned with a block pending.
    ASSERT_EQ(Call(1 << 20, noise, 200000, LzhOptions(1)), CS_END_INBUFFER);
    EXPECT_TRUE(CompressWhole(*state_, data, 2) == CompressWhole(*fresh, data, 2)) << size;
  }
}

TEST_F(LzhCompress, PreamblesAreDrawnAndShiftTheBlocksOnly) {
  const Bytes data = MakeData(Kind::kText, 3000);
  std::set<int> kinds;
  for (int n = 0; n < 300; ++n) {
    const Bytes stream = CompressWhole(*state_, data, 2, false);
    kinds.insert(stream[8] & 3);
    ASSERT_TRUE(InflateBlocks(stream, data.size()) == data);
  }
  EXPECT_EQ(kinds.size(), 4U);
}

}  // namespace
}  // namespace tolven::test

// Checksum framing: taken apart with zlib's CRC-32, put together in pieces, damaged everywhere.

#include <zlib.h>

#include <tuple>

#include "cslib/engine_driver.h"

namespace tolven {
namespace {

using test::Bytes;
using test::CompressPieces;
using test::DecompressPieces;
using test::Kind;
using test::MakeData;
using test::Outcome;
using test::TestHandle;

constexpr int kFramedLzh = CS_ALGORITHM_LZH | CS_CHECKSUM | 2 << CS_LEVEL_SHIFT;
constexpr int kFramedLzc = CS_ALGORITHM_LZC | CS_CHECKSUM;

std::uint32_t Get32(const Bytes& bytes, std::size_t at) {
  return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
         static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

// zlib's value is the inverse of the register that the stream carries.
std::uint32_t Register(const Bytes& bytes, std::size_t from) {
  return ~static_cast<std::uint32_t>(crc32(0, bytes.data() + from, static_cast<uInt>(bytes.size() - from)));
}

// The unframed stream inside; every length and checksum checked.
Bytes TakeApart(const Bytes& framed, const Bytes& data) {
  Bytes plain(framed.begin(), framed.begin() + CS_HEAD_SIZE);
  EXPECT_EQ(plain[4] & 8, 8);
  plain[4] = static_cast<std::uint8_t>(plain[4] & ~8);
  std::size_t at = CS_HEAD_SIZE;
  std::uint32_t last = 0;
  while (framed.size() - at > 8) {
    last = Get32(framed, at);
    const std::uint32_t crc = Get32(framed, at + 4);
    at += 8;
    EXPECT_LE(last, 1024U);
    if (last == 0 || last > framed.size() - at) {
      ADD_FAILURE() << "segment of " << last << " bytes";
      return {};
    }
    plain.insert(plain.end(), framed.begin() + static_cast<std::ptrdiff_t>(at),
                 framed.begin() + static_cast<std::ptrdiff_t>(at + last));
    EXPECT_EQ(Register(plain, CS_HEAD_SIZE), crc);
    at += last;
  }
  EXPECT_GE(last, 2U) << "the closing byte must not stand alone";
  EXPECT_EQ(at + 8, framed.size());
  EXPECT_EQ(Get32(framed, at), 0U);
  EXPECT_EQ(Get32(framed, at + 4), Register(data, 0));
  return plain;
}

TEST(Segments, CarryTheStreamAndItsChecksums) {
  const TestHandle handle;
  for (const int options : {kFramedLzh, kFramedLzc}) {
    for (const Kind kind : test::kAllKinds) {
      for (const std::size_t size : {1U, 2U, 1000U, 65536U, 200000U}) {
        const Bytes data = MakeData(kind, size);
        for (const std::size_t room : {400000U, 1024U, 1031U, 1032U, 500U}) {
          const Outcome framed = CompressPieces(handle, data, options, size, room);
          ASSERT_EQ(framed.result, 1);
          const Outcome back = DecompressPieces(handle, TakeApart(framed.out, data), 400000, size + 1);
          EXPECT_EQ(back.result, 1);
          EXPECT_EQ(back.out, data) << test::KindName(kind) << " " << size << " room " << room;
        }
      }
    }
  }
}

TEST(Segments, AnEmptyStream) {
  const TestHandle handle;
  const Outcome framed = CompressPieces(handle, {}, kFramedLzh, 1, 100);
  ASSERT_EQ(framed.result, 1);
  EXPECT_EQ(TakeApart(framed.out, {}).size() + 16, framed.out.size());
  for (const std::size_t piece : {1U, 100U}) {
    for (const std::size_t room : {0U, 1U})
      EXPECT_EQ(DecompressPieces(handle, framed.out, piece, room).result, 1) << piece << ' ' << room;
  }
}

// A stream whose last block ends before the length that the header declares says so, as often as it is asked.
TEST(Segments, AShortStreamSaysSoForEver) {
  const TestHandle handle;
  const Bytes data = MakeData(Kind::kText, 3000);
  for (const int options : {kFramedLzh, kFramedLzh & ~CS_CHECKSUM}) {
    Bytes stream = CompressPieces(handle, data, options, 3000, 9000).out;
    stream[0] = static_cast<std::uint8_t>(stream[0] + 1);
    for (const std::size_t piece : {1U, 9000U}) {
      const Outcome outcome = DecompressPieces(handle, stream, piece, 9000);
      EXPECT_EQ(outcome.result, 0);
      EXPECT_EQ(outcome.out, data);
      Bytes rest = {0, 1, 2}, room(9);
      std::int32_t read = 0, written = 0;
      for (int n = 0; n < 3; ++n)
        EXPECT_EQ(CsRDecompress(handle, rest.data(), 3, room.data(), 9, 0, &read, &written), 0) << options;
    }
  }
}

// Streams whose coded length runs over the end of a segment byte by byte: the last byte of the coder falls on
// every place around it.
TEST(Segments, EndAtEveryPlaceAroundASegmentEnd) {
  const TestHandle handle;
  for (const int options : {kFramedLzh, kFramedLzc}) {
    for (std::size_t size = 880; size < 1060; ++size) {
      const Bytes data = MakeData(Kind::kRandom, size);
      const Outcome framed = CompressPieces(handle, data, options, size, 5000);
      TakeApart(framed.out, data);
      for (const std::size_t piece : {1U, 5000U}) {
        const Outcome back = DecompressPieces(handle, framed.out, piece, 5000);
        ASSERT_EQ(back.result, 1) << size;
        ASSERT_EQ(back.out, data);
        EXPECT_EQ(back.taken, framed.out.size());
      }
    }
  }
}

class SegmentPieces : public ::testing::TestWithParam<std::tuple<int, std::size_t, std::size_t>> {};

TEST_P(SegmentPieces, RoundTrip) {
  const auto [options, piece, room] = GetParam();
  const TestHandle handle;
  Bytes data = MakeData(Kind::kText, 20000);
  const Bytes noise = MakeData(Kind::kRandom, 4000);
  data.insert(data.end(), noise.begin(), noise.end());
  const Outcome framed = CompressPieces(handle, data, options, piece, room);
  ASSERT_EQ(framed.result, 1);
  const Bytes whole = TakeApart(framed.out, data);
  EXPECT_EQ(DecompressPieces(handle, whole, whole.size(), data.size()).out, data);
  const Outcome back = DecompressPieces(handle, framed.out, piece, room);
  EXPECT_EQ(back.result, 1);
  EXPECT_EQ(back.out, data);
  EXPECT_EQ(back.taken, framed.out.size());
}

INSTANTIATE_TEST_SUITE_P(Sizes, SegmentPieces,
                         ::testing::Combine(::testing::Values(kFramedLzh, kFramedLzc),
                                            ::testing::Values(1, 2, 3, 511, 65536),
                                            ::testing::Values(1, 7, 65536)));

TEST(Segments, HeaderOnlyStartsThenTheRest) {
  const TestHandle handle;
  const Bytes data = MakeData(Kind::kText, 3000);
  Bytes stream(10000);
  ASSERT_EQ(CsRInitCompress(handle, stream.data(), 3000, kFramedLzh), 0);
  std::int32_t read = 0, written = 0;
  ASSERT_EQ(
      CsRCompress(handle, 3000, data.data(), 3000, stream.data() + 8, 9992, kFramedLzh, &read, &written), 1);
  const std::int32_t size = written;
  Bytes out(3000);
  ASSERT_EQ(CsRInitDecompress(handle, stream.data()), 0);
  EXPECT_EQ(CsRDecompress(handle, stream.data() + 8, size, out.data(), 3000, 0, &read, &written), 1);
  EXPECT_EQ(read, size);
  EXPECT_EQ(out, data);
  // A start call that sees everything but has no room.
  EXPECT_EQ(CsRDecompress(handle, stream.data(), size + 8, nullptr, 0, 1, &read, &written), 2);
  EXPECT_EQ(CsRDecompress(handle, stream.data() + read, size, out.data(), 3000, 0, &read, &written), 1);
}

// With whole segments at hand, damage to data or checksum is found before the coder can stumble over it.
TEST(Segments, ADamagedByteIsFound) {
  const TestHandle handle;
  Bytes data = MakeData(Kind::kText, 3000);
  const Bytes noise = MakeData(Kind::kRandom, 1500);
  data.insert(data.end(), noise.begin(), noise.end());
  for (const int options : {kFramedLzh, kFramedLzc}) {
    const Bytes framed = CompressPieces(handle, data, options, data.size(), 20000).out;
    ASSERT_GT(framed.size(), 2100U);
    for (std::size_t at = CS_HEAD_SIZE; at < framed.size(); ++at) {
      Bytes damaged = framed;
      damaged[at] ^= static_cast<std::uint8_t>(1 << at % 8);
      const Outcome whole = DecompressPieces(handle, damaged, damaged.size(), 5000);
      const bool unread = at >= framed.size() - 8 && at < framed.size() - 4;
      const bool length = (at - 8) % (8 + 1022) < 4;
      if (unread) {
        EXPECT_EQ(whole.result, 1) << at;
      } else if (length) {
        EXPECT_NE(whole.result, 1) << at;
      } else {
        EXPECT_EQ(whole.result, -56) << at;
      }
      if (at % 5 == 0 && !unread) {
        EXPECT_NE(DecompressPieces(handle, damaged, 3, 100).result, 1) << at;
      }
    }
  }
}

TEST(Segments, ACutStreamAsksForMore) {
  const TestHandle handle;
  const Bytes data = MakeData(Kind::kText, 2000);
  for (const int options : {kFramedLzh, kFramedLzc}) {
    const Bytes framed = CompressPieces(handle, data, options, 2000, 20000).out;
    for (std::size_t size = CS_HEAD_SIZE; size < framed.size(); ++size) {
      const Bytes cut(framed.begin(), framed.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_EQ(DecompressPieces(handle, cut, 5000, 5000).result, 3) << size;
    }
  }
}

}  // namespace
}  // namespace tolven

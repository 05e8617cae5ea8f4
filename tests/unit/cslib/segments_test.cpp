// Checksum framing: taken apart with zlib's CRC-32, put together in pieces, damaged everywhere.

#include <zlib.h>

#include "cslib/bytes.h"
#include "cslib/driver.h"

namespace tolven::test {
namespace {

constexpr int kFramed[] = {kFramedLzh, kFramedLzc};

// zlib's value is the inverse of the register that the stream carries.
std::uint32_t Register(const Bytes& bytes, std::size_t from) {
  return ~static_cast<std::uint32_t>(::crc32(0, bytes.data() + from, static_cast<uInt>(bytes.size() - from)));
}

// The unframed stream inside; every length and checksum checked.
Bytes TakeApart(const Bytes& framed, const Bytes& data) {
  Bytes plain(framed.begin(), framed.begin() + CS_HEAD_SIZE);
  EXPECT_EQ(plain[4] & 8, 8);
  plain[4] = static_cast<std::uint8_t>(plain[4] & ~8);
  std::size_t at = CS_HEAD_SIZE;
  std::uint32_t last = 0;
  while (framed.size() - at > 8) {
    last = LoadLittle32(framed.data() + at);
    const std::uint32_t crc = LoadLittle32(framed.data() + at + 4);
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
  EXPECT_EQ(LoadLittle32(framed.data() + at), 0U);
  EXPECT_EQ(LoadLittle32(framed.data() + at + 4), Register(data, 0));
  return plain;
}

// In whatever pieces a stream goes in and comes out: well-formed segments around the stream that the coder
// makes.
TEST(Segments, CarryTheStreamAndItsChecksums) {
  Driver driver;
  for (const int options : kFramed) {
    for (const Kind kind : kAllKinds) {
      for (const std::size_t size : {1U, 2U, 1000U, 65536U, 200000U}) {
        const Bytes data = MakeData(kind, size);
        for (const std::size_t room : {400000U, 1024U, 1031U, 1032U, 500U}) {
          const Outcome framed = driver.Compress(data, options, size, room);
          ASSERT_EQ(framed.rc, 1);
          const Outcome back = driver.Decompress(TakeApart(framed.out, data), 400000, size + 1);
          EXPECT_EQ(back.rc, 1);
          EXPECT_EQ(back.out, data) << KindName(kind) << " " << size << " room " << room;
        }
      }
    }
    Bytes data = MakeData(Kind::kText, 20000);
    const Bytes noise = MakeData(Kind::kRandom, 4000);
    data.insert(data.end(), noise.begin(), noise.end());
    for (const std::size_t piece : {1U, 2U, 3U, 511U, 65536U}) {
      for (const std::size_t room : {1U, 7U, 65536U}) {
        const Outcome framed = driver.Compress(data, options, piece, room);
        EXPECT_EQ(driver.Decompress(TakeApart(framed.out, data), 400000, 400000).out, data);
        const Outcome back = driver.Decompress(framed.out, piece, room);
        EXPECT_EQ(back.rc, 1);
        EXPECT_EQ(back.out, data) << piece << ' ' << room;
        EXPECT_EQ(back.taken, framed.out.size());
      }
    }
  }
}

TEST(Segments, AnEmptyStream) {
  Driver driver;
  const Bytes lzh = driver.Compress({}, kFramedLzh).out;
  EXPECT_EQ(TakeApart(lzh, {}).size() + 16, lzh.size());
  // This compressor makes none with LZC: header and trailer, nothing coded.
  const Bytes lzc = {0, 0, 0, 0, 0x19, 0x1F, 0x9D, 0x8D, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
  for (const Bytes& framed : {lzh, lzc}) {
    for (const std::size_t piece : {1U, 100U}) {
      for (const std::size_t room : {0U, 1U}) {
        EXPECT_EQ(driver.Decompress(framed, piece, room).rc, 1) << piece << ' ' << room;
      }
    }
  }
}

// A stream whose last block ends before the length that the header declares says so, as often as it is asked.
TEST(Segments, AShortStreamSaysSoForEver) {
  Driver driver;
  const Bytes data = MakeData(Kind::kText, 3000);
  for (const int options : {kFramedLzh, kLzh}) {
    Bytes stream = driver.Compress(data, options).out;
    ++stream[0];
    for (const std::size_t piece : {1U, 9000U}) {
      const Outcome outcome = driver.Decompress(stream, piece, 9000);
      EXPECT_EQ(outcome.rc, 0);
      EXPECT_EQ(outcome.out, data);
      for (int n = 0; n < 3; ++n) EXPECT_EQ(driver.Decompress(Bytes{0, 1, 2}, 9), 0) << options;
    }
  }
}

// Streams whose coded length runs over the end of a segment byte by byte: the last byte of the coder falls on
// every place around it.
TEST(Segments, EndAtEveryPlaceAroundASegmentEnd) {
  Driver driver;
  for (const int options : kFramed) {
    for (std::size_t size = 880; size < 1060; ++size) {
      const Bytes data = MakeData(Kind::kRandom, size);
      const Bytes framed = driver.Compress(data, options).out;
      TakeApart(framed, data);
      for (const std::size_t piece : {1U, 5000U}) {
        const Outcome back = driver.Decompress(framed, piece, 5000);
        ASSERT_EQ(back.rc, 1) << size;
        ASSERT_EQ(back.out, data);
        EXPECT_EQ(back.taken, framed.size());
      }
    }
  }
}

// With whole segments at hand, damage to data or checksum is found before the coder can stumble over it.
TEST(Segments, ADamagedByteIsFound) {
  Driver driver;
  Bytes data = MakeData(Kind::kText, 3000);
  const Bytes noise = MakeData(Kind::kRandom, 1500);
  data.insert(data.end(), noise.begin(), noise.end());
  for (const int options : kFramed) {
    const Bytes framed = driver.Compress(data, options).out;
    ASSERT_GT(framed.size(), 2100U);
    for (std::size_t at = CS_HEAD_SIZE; at < framed.size(); ++at) {
      Bytes damaged = framed;
      damaged[at] ^= static_cast<std::uint8_t>(1 << at % 8);
      const int whole = driver.Decompress(damaged, damaged.size(), 5000).rc;
      const bool unread = at >= framed.size() - 8 && at < framed.size() - 4;
      const bool length = (at - 8) % (8 + 1022) < 4;
      if (unread) {
        EXPECT_EQ(whole, 1) << at;
      } else if (length) {
        EXPECT_NE(whole, 1) << at;
      } else {
        EXPECT_EQ(whole, -56) << at;
      }
      if (at % 5 == 0 && !unread) {
        EXPECT_NE(driver.Decompress(damaged, 3, 100).rc, 1) << at;
      }
    }
  }
}

TEST(Segments, ACutStreamAsksForMore) {
  Driver driver;
  for (const int options : kFramed) {
    const Bytes framed = driver.Compress(MakeData(Kind::kText, 2000), options).out;
    for (std::size_t size = CS_HEAD_SIZE; size < framed.size(); ++size) {
      EXPECT_EQ(
          driver.Decompress(Bytes(framed.begin(), framed.begin() + static_cast<long>(size)), 5000, 5000).rc,
          3)
          << size;
    }
  }
}

}  // namespace
}  // namespace tolven::test

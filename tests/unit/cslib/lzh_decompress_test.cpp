#include "cslib/lzh_decompress.h"

#include <gtest/gtest.h>

#include "cslib/lzh_decompress_driver.h"
#include "cslib/lzh_test_streams.h"

namespace tolven::lzhtest {
namespace {

constexpr std::size_t kSizes[] = {0,     1,     2,     3,     257,   258,    259,
                                  260,   261,   262,   16122, 16383, 16384,  16385,
                                  32506, 32768, 65535, 65536, 65537, 131072, 1 << 20};

struct Sample {
  const char* name;
  Bytes (*make)(std::size_t);
};
constexpr Sample kSamples[] = {
    {"text", Text},
    {"binary", Binary},
    {"zeros", [](std::size_t size) { return Bytes(size); }},
    {"noise", Noise},
    {"period 2", [](std::size_t size) { return Periodic(size, 2); }},
    {"period 5", [](std::size_t size) { return Periodic(size, 5); }},
    {"period 11", [](std::size_t size) { return Periodic(size, 11); }},
    {"period 16122", [](std::size_t size) { return Periodic(size, 16122); }},
};

TEST(LzhDecompress, WholeStreamsOfEveryStrategyAndSize) {
  Driver driver, portable(FastLoop::kPortable);
  int decoded = 0;
  for (const Sample& sample : kSamples) {
    for (const std::size_t size : kSizes) {
      const Bytes data = sample.make(size);
      for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED, Z_HUFFMAN_ONLY, Z_RLE}) {
        const auto stream = ZlibStream(data, 6, strategy, static_cast<unsigned>(size % 4));
        if (!stream) continue;
        const Outcome outcome = driver.Decode(*stream, 1 << 20, 1 << 20);
        ASSERT_EQ(outcome.rc, CS_END_OF_STREAM) << sample.name << ' ' << size << ' ' << strategy;
        ASSERT_TRUE(outcome.out == data) << sample.name << ' ' << size << ' ' << strategy;
        ASSERT_TRUE(portable.Decode(*stream, 1 << 20, 1 << 20).out == data) << sample.name << ' ' << size;
        ++decoded;
      }
    }
  }
  EXPECT_GT(decoded, 500);  // zlib stores only a few of them
}

TEST(LzhDecompress, PiecesOfInputAndOutput) {
  Driver driver;
  for (const Sample& sample : kSamples) {
    for (const std::size_t size : {262U, 16384U, 65537U}) {
      const Bytes data = sample.make(size);
      const auto stream = ZlibStream(data, 1 + static_cast<int>(size % 9), Z_DEFAULT_STRATEGY, 3);
      if (!stream) continue;
      for (const std::size_t piece : {1U, 2U, 3U, 511U, 65536U}) {
        for (const std::size_t room : {1U, 7U, 8192U, 16383U, 65536U}) {
          const Outcome outcome = driver.Decode(*stream, piece, room);
          ASSERT_EQ(outcome.rc, CS_END_OF_STREAM)
              << sample.name << ' ' << size << ' ' << piece << ' ' << room;
          ASSERT_TRUE(outcome.out == data) << sample.name << ' ' << size << ' ' << piece << ' ' << room;
        }
      }
    }
  }
}

TEST(LzhDecompress, LongStreamThroughSmallRooms) {
  Driver driver;
  const Bytes data = Text(1 << 20);
  const Bytes stream = *ZlibStream(data);
  for (const std::size_t room : {300U, 4000U, 65535U}) {
    const Outcome outcome = driver.Decode(stream, 2000, room);
    ASSERT_EQ(outcome.rc, CS_END_OF_STREAM);
    ASSERT_TRUE(outcome.out == data) << room;
  }
}

// Small streams end up in the careful path, larger ones cross from one path to the other wherever they are
// cut.
TEST(LzhDecompress, InputCutAtEveryPosition) {
  Driver driver;
  for (const std::size_t size : {40U, 300U, 9000U}) {
    const Bytes data = Text(size);
    for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED}) {
      const Bytes stream = *ZlibStream(data, 6, strategy, 1);
      for (std::size_t cut = CS_HEAD_SIZE; cut < stream.size(); ++cut) {
        driver.Restart();
        const Bytes head(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(cut));
        int rc = driver.Call(head.data(), head.size(), size);
        if (rc == CS_END_INBUFFER) {
          rc = driver.Call(stream.data() + cut, stream.size() - cut, size - driver.out.size());
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
      ASSERT_EQ(driver.Call(stream.data(), stream.size(), cut), CS_END_OUTBUFFER);
      const auto read = static_cast<std::size_t>(driver.read);
      ASSERT_EQ(driver.Call(stream.data() + read, stream.size() - read, data.size() - cut), CS_END_OF_STREAM);
      ASSERT_TRUE(driver.out == data) << sample.name << ' ' << cut;
    }
  }
}

TEST(LzhDecompress, StartCallMaySeeTheHeaderAlone) {
  const Bytes data = Text(100);
  const Bytes stream = *ZlibStream(data);
  for (const std::size_t room : {0U, 100U}) {
    Driver driver;
    ASSERT_EQ(driver.Call(stream.data(), 8, room), CS_END_INBUFFER);
    EXPECT_EQ(driver.read, 8);
    EXPECT_EQ(driver.written, 0);
    ASSERT_EQ(driver.Call(stream.data() + 8, stream.size() - 8, 100), CS_END_OF_STREAM);
    EXPECT_TRUE(driver.out == data);
  }
}

TEST(LzhDecompress, BytesBehindTheStreamCountAsReadAndLaterCallsSayEnd) {
  Bytes stream = *ZlibStream(Text(100));
  stream.insert(stream.end(), 500, 0xAB);
  Driver driver;
  ASSERT_EQ(driver.Call(stream.data(), stream.size(), 4096), CS_END_OF_STREAM);
  EXPECT_EQ(driver.out.size(), 100U);
  EXPECT_EQ(driver.Call(nullptr, 0, 0), CS_END_OF_STREAM);
  EXPECT_EQ(driver.Call(nullptr, 0, 10), CS_END_OF_STREAM);
  EXPECT_EQ(driver.written, 0);
}

TEST(LzhDecompress, AStartCallForgetsAnAbandonedStream) {
  const Bytes first = *ZlibStream(Text(70000)), data = Binary(70000), second = *ZlibStream(data);
  Driver driver;
  for (std::size_t given = 8; given < first.size(); given += 1 + given / 5) {
    driver.Restart();
    const int rc = driver.Call(first.data(), given, 1 + given);
    ASSERT_TRUE(rc == CS_END_INBUFFER || rc == CS_END_OUTBUFFER) << given;
    const Outcome outcome = driver.Decode(second, 5000, 5000);
    ASSERT_EQ(outcome.rc, CS_END_OF_STREAM) << given;
    ASSERT_TRUE(outcome.out == data) << given;
  }
}

TEST(LzhDecompress, FarthestDistanceAcrossCallsAndWithinOne) {
  // 16384 literals, then a match that reaches back to the very first of them.
  const Bytes head = Noise(16384);
  Bytes data = head;
  data.insert(data.end(), head.begin(), head.begin() + 258);
  BitWriter writer(static_cast<std::uint32_t>(data.size()));
  writer.FixedBlock(true);
  for (const std::uint8_t byte : head) writer.Fixed(byte);
  writer.Fixed(285).Code(27, 5).Put(16384 - 12289, 12).Fixed(256);
  const Bytes stream = writer.Take();
  Driver driver;
  for (const std::size_t room : {1U, 100U, 8192U, 16383U, 16384U, 16385U, 16500U, 70000U}) {
    const Outcome outcome = driver.Decode(stream, 70000, room);
    ASSERT_EQ(outcome.rc, CS_END_OF_STREAM) << room;
    ASSERT_TRUE(outcome.out == data) << room;
  }
}

}  // namespace
}  // namespace tolven::lzhtest

#include "cslib/crc32.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <string_view>
#include <utility>
#include <vector>

#include "cslib/data.h"

namespace tolven {
namespace {

using test::Bytes;

Bytes RandomBytes(std::size_t count, unsigned seed) {
  return test::MakeData(test::Kind::kRandom, count, seed);
}

// zlib inverts before and after; the raw register is wanted here. A null pointer means "initial value" to
// zlib.
std::uint32_t ZlibRegister(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  if (count == 0) return crc;
  return ~static_cast<std::uint32_t>(::crc32(~crc, bytes, static_cast<uInt>(count)));
}

TEST(Crc32, CheckValueOfTheNineDigits) {
  constexpr std::string_view digits = "123456789";
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(digits.data());
  EXPECT_EQ(~CRC32Buf(0xFFFFFFFFU, bytes, digits.size()), 0xCBF43926U);

  auto handle = CRC32NewHandle(0);
  ASSERT_TRUE(handle);
  EXPECT_EQ(CRC32HBuffer(handle.get(), bytes, 9, false), 9U);
  EXPECT_EQ(CRC32FreeHandle(std::move(handle)), 0xCBF43926U);
  EXPECT_EQ(CRC32FreeHandle(CRC32NewHandle(0)), 0U);
  EXPECT_EQ(CRC32FreeHandle(nullptr), 0U);
}

TEST(Crc32, EveryKernelAgreesWithZlibAtEveryLengthAndAlignment) {
  std::vector<std::pair<const char*, crc32::Kernel>> kernels = {
      {"dispatched", CRC32Buf}, {"bytewise", crc32::UpdateBytewise}, {"sliced", crc32::UpdateSliced}};
#if defined(__x86_64__)
  if (crc32::HasFolding()) kernels.emplace_back("folded", crc32::UpdateFolded);
  if (crc32::HasWideFolding()) kernels.emplace_back("wide", crc32::UpdateFoldedWide);
#endif
  for (std::size_t count = 0; count <= 2500; count += count < 600 ? 1 : 29) {
    for (std::size_t offset = 0; offset < 16; ++offset) {
      // Exactly as long as needed, so that a read past the end shows under ASan.
      const Bytes bytes = RandomBytes(offset + count, static_cast<unsigned>(count));
      const std::uint32_t start = count % 3 == 0 ? 0U : 0x9E3779B9U * static_cast<std::uint32_t>(count);
      const std::uint32_t expected = ZlibRegister(start, bytes.data() + offset, count);
      for (const auto& [name, kernel] : kernels) {
        ASSERT_EQ(kernel(start, bytes.data() + offset, count), expected)
            << name << ' ' << count << '+' << offset;
      }
    }
  }
}

TEST(Crc32, CombinedPiecesGiveTheRegisterOfTheWhole) {
  const Bytes bytes = RandomBytes(200000, 11);
  for (const std::size_t cut : {0U, 1U, 7U, 65535U, 65536U, 131072U, 199999U, 200000U}) {
    for (const std::uint32_t start : {0U, 0xFFFFFFFFU, 0x12345678U}) {
      const std::uint32_t before = ZlibRegister(start, bytes.data(), cut);
      const std::size_t rest = bytes.size() - cut;
      EXPECT_EQ(Crc32Combine(before, ZlibRegister(0, bytes.data() + cut, rest), rest),
                ZlibRegister(start, bytes.data(), bytes.size()))
          << cut;
    }
  }
  // Lengths that no buffer has: zlib's own combination, whose values are inverted before and after.
  for (const std::uint64_t length : {0xFFFFFFFFULL, 0x100000000ULL, 0x123456789ABCDEFULL}) {
    const auto combined = static_cast<std::uint32_t>(::crc32_combine64(1, 2, static_cast<z_off64_t>(length)));
    EXPECT_EQ(Crc32Combine(1, 2, length), combined) << length;
  }
}

TEST(Crc32, WideRegisterLosesItsUpperHalf) {
  const Bytes bytes = RandomBytes(1000, 3);
  std::uint64_t crc = 0x123456789ABCDEF0U;
  EXPECT_EQ(calccrcb(bytes.data(), 1000, &crc), 0);
  EXPECT_EQ(crc, ZlibRegister(0x9ABCDEF0U, bytes.data(), 1000));
  for (const std::int64_t count : {0, -1, -1000}) {
    crc = 0x123456789ABCDEF0U;
    EXPECT_EQ(calccrcb(bytes.data(), count, &crc), 0);
    EXPECT_EQ(crc, 0x123456789ABCDEF0U) << count;
  }
}

TEST(Crc32Handle, SegmentsAsAskedFor) {
  struct Row {
    std::int32_t segment;
    bool stop;
    std::vector<std::uint32_t> asked, taken;
    std::uint32_t position, total;
  };
  const std::vector<Row> rows = {
      {1024, true, {3000, 1976, 952}, {1024, 1024, 952}, 952, 3000},
      {1024, false, {3000}, {3000}, 952, 3000},
      {1024, true, {1000, 24, 0, 1}, {1000, 24, 0, 1}, 1, 1025},
      {0, true, {70000, 4464}, {65536, 4464}, 4464, 70000},
      {1, true, {5, 5}, {1, 1}, 0, 2},
      {-1, true, {3000}, {3000}, 3000, 3000},
  };
  const Bytes bytes = RandomBytes(70000, 5);
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "segment " << row.segment << " first " << row.asked[0]);
    const auto handle(CRC32NewHandle(row.segment));
    ASSERT_TRUE(handle);
    std::size_t at = 0;
    for (std::size_t i = 0; i < row.asked.size(); ++i) {
      ASSERT_EQ(CRC32HBuffer(handle.get(), bytes.data() + at, row.asked[i], row.stop), row.taken[i]);
      at += row.taken[i];
    }
    EXPECT_EQ(handle->position, row.position);
    EXPECT_EQ(handle->total, row.total);
    EXPECT_EQ(handle->crcRegister, ZlibRegister(0xFFFFFFFFU, bytes.data(), at));
  }
}

TEST(Crc32Handle, SegmentLengthZeroFromAFileTracksNothing) {
  const auto handle(CRC32NewHandle(10));
  handle->segmentLength = 0;
  const Bytes bytes(25, 1);
  EXPECT_EQ(CRC32HBuffer(handle.get(), bytes.data(), 25, true), 25U);
  EXPECT_EQ(handle->position, 0U);
  EXPECT_EQ(handle->total, 25U);
}

}  // namespace
}  // namespace tolven

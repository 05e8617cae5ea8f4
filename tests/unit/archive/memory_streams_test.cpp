#include "archive/memory_streams.h"

#include <gtest/gtest.h>

namespace tolven {
namespace {

TEST(MemoryStreams, BufferedReadsRunOnAndAreBounded) {
  CBufferedStream stream(8);
  unsigned char bytes[8] = "abcdefg";
  unsigned long done = 99;
  EXPECT_FALSE(stream.Read(bytes, 5, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_TRUE(stream.Write(bytes, 3, &done));
  EXPECT_TRUE(stream.Write(bytes + 3, 4, &done));
  EXPECT_EQ(done, 4U);
  unsigned char back[8] = {};
  EXPECT_TRUE(stream.Read(back, 5, &done));
  EXPECT_EQ(done, 5U);
  EXPECT_TRUE(stream.Read(back + 5, 5, &done));
  EXPECT_EQ(done, 2U);
  EXPECT_STREQ(reinterpret_cast<char*>(back), "abcdefg");
  EXPECT_FALSE(stream.Write(bytes, 2, &done)) << "beyond its limit";
}

}  // namespace
}  // namespace tolven

// LZC against compress(1) in both directions, against a literal model where the two differ, and against
// streams that nobody's compressor wrote.

#include <cstdlib>
#include <filesystem>
#include <string>

#include "cslib/crc32.h"
#include "cslib/driver.h"
#include "support/temp_dir.h"

namespace tolven::test {
namespace {

Bytes Pack(const Bytes& data) {
  const Outcome packed = Driver().Compress(data, kLzc);
  EXPECT_EQ(packed.rc, 1);
  EXPECT_EQ(packed.taken, data.size());
  return packed.out;
}

Outcome Unpack(const Bytes& stream, std::size_t size) {
  return Driver().Decompress(stream, stream.size(), size + 1);
}

Bytes Codes(const Bytes& stream) {
  return Bytes(stream.begin() + CS_HEAD_SIZE, stream.end());
}

Bytes WithHeader(std::size_t length, std::uint8_t parameter, const Bytes& codes) {
  Bytes stream(CS_HEAD_SIZE);
  EXPECT_EQ(CsRSetHead(stream.data(), static_cast<std::int32_t>(length), 0x11, parameter), 0);
  stream.insert(stream.end(), codes.begin(), codes.end());
  return stream;
}

// Bytes out of a small set, zeros foremost: the pair of two zero bytes comes late and crowded.
Bytes Zeroish(std::size_t size, std::uint32_t seed) {
  Random random(seed);
  // The pair (32, 1) has the same first place as the pair of zeros and comes first.
  Bytes data = {32, 1, 3};
  while (data.size() < size) {
    const auto draw = random();
    data.push_back(draw % 3 == 0 ? static_cast<std::uint8_t>(draw >> 8) : 0);
  }
  data.resize(size);
  return data;
}

// Every string keeps the place that the classic hash table of 9001 keys gives it, which the first table that
// fills up shows in the codes. A literal model of it wrote these streams, too, when the checksum was taken.
TEST(Lzc, FollowsTheClassicTable) {
  std::uint32_t checksum = 0;
  const auto add = [&](const Bytes& data) {
    const Bytes stream = Pack(data);
    checksum = CRC32Buf(checksum, stream.data(), stream.size());
    EXPECT_EQ(Unpack(stream, data.size()).out, data);
  };
  for (const Kind kind : kAllKinds) {
    for (const std::size_t size : {1U, 2U, 3U, 30000U, 400000U}) add(MakeData(kind, size));
  }
  for (std::uint32_t seed = 0; seed < 30; ++seed) add(Zeroish(30000, seed));
  // Long enough for the other form of the ratio.
  add(MakeData(Kind::kText, 0x7FFFFF + 300000));
  EXPECT_EQ(checksum, 0x500B765BU);
}

TEST(Lzc, PiecesGiveTheSameBytes) {
  for (const Kind kind : {Kind::kText, Kind::kRandom, Kind::kZeros}) {
    const Bytes data = MakeData(kind, 40000);
    const Bytes whole = Pack(data);
    for (const std::size_t piece : {1U, 2U, 3U, 511U, 65536U}) {
      for (const std::size_t room : {1U, 7U, 41U, 65536U}) {
        Driver driver;
        const Outcome packed = driver.Compress(data, kLzc, piece, room);
        EXPECT_EQ(packed.rc, 1);
        EXPECT_EQ(packed.out, whole) << piece << " " << room;
        const Outcome back = driver.Decompress(whole, piece, room);
        EXPECT_EQ(back.rc, 1);
        EXPECT_EQ(back.out, data) << piece << " " << room;
        EXPECT_EQ(back.taken, whole.size());
      }
    }
  }
}

// --- compress(1)

class Ncompress : public TempDirTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(std::system("command -v compress >/dev/null 2>&1"), 0)
        << "these tests need the program compress: install the Debian package ncompress";
  }

  // Compresses every file of the directory in one run, to NAME.Z.
  static void RunCompress(const std::string& options) {
    // 2: some file did not become smaller.
    const int status = std::system(("compress -f " + options + " -- * </dev/null 2>/dev/null").c_str());
    ASSERT_TRUE(status == 0 || status == 2 << 8) << status;
  }

  static Bytes Read(const std::string& name) {
    const std::string content = ReadFile(name);
    return Bytes(content.begin(), content.end());
  }
  static void Write(const std::string& name, const Bytes& data) {
    WriteFile(name, std::string(data.begin(), data.end()));
  }
};

TEST_F(Ncompress, WritesTheSameCodes) {
  std::vector<Bytes> inputs;
  for (const Kind kind : kAllKinds) {
    // 9 to 10 bits, 10 to 11, and a full table.
    for (std::size_t size = 1; size < 20; ++size) inputs.push_back(MakeData(kind, size));
    for (std::size_t size = 250; size < 290; ++size) inputs.push_back(MakeData(kind, size));
    for (std::size_t size = 760; size < 800; ++size) inputs.push_back(MakeData(kind, size));
    for (std::size_t size = 7900; size < 30000; size += 731) inputs.push_back(MakeData(kind, size));
  }
  inputs.push_back(MakeData(Kind::kZeros, 3000000));
  inputs.push_back(MakeData(Kind::kPeriodic, 300000));
  for (std::size_t n = 0; n < inputs.size(); ++n) Write(std::to_string(n), inputs[n]);
  RunCompress("-b 13");
  int compared = 0;
  for (std::size_t n = 0; n < inputs.size(); ++n) {
    const Bytes theirs = Read(std::to_string(n) + ".Z");
    // The second look at the ratio comes later there, and clears what random bytes have filled.
    if (theirs.size() > 18000 && theirs.size() > inputs[n].size()) continue;
    ++compared;
    ASSERT_EQ(Bytes(theirs.begin(), theirs.begin() + 3), (Bytes{0x1F, 0x9D, 0x8D}));
    EXPECT_EQ(Codes(Pack(inputs[n])), Bytes(theirs.begin() + 3, theirs.end())) << n;
  }
  EXPECT_GT(compared, 750);
}

TEST_F(Ncompress, ReadsWhatWeWrite) {
  std::vector<Bytes> inputs;
  for (const Kind kind : kAllKinds) inputs.push_back(MakeData(kind, 1000000));
  inputs.push_back(Zeroish(300000, 9));
  for (std::size_t n = 0; n < inputs.size(); ++n) {
    Bytes theirs = {0x1F, 0x9D, 0x8D};
    const Bytes codes = Codes(Pack(inputs[n]));
    theirs.insert(theirs.end(), codes.begin(), codes.end());
    Write(std::to_string(n) + ".Z", theirs);
  }
  ASSERT_EQ(std::system("compress -d -f *.Z </dev/null"), 0);
  for (std::size_t n = 0; n < inputs.size(); ++n) EXPECT_EQ(Read(std::to_string(n)), inputs[n]) << n;
}

TEST_F(Ncompress, WritesWhatWeRead) {
  std::vector<Bytes> inputs;
  for (const Kind kind : kAllKinds) inputs.push_back(MakeData(kind, 1000000));
  // The widths that both sides can do; compress(1) itself is broken at 9 bits and without CLEAR.
  for (const std::string options : {"-b 10", "-b 11", "-b 12", "-b 13", "-b 14"}) {
    for (std::size_t n = 0; n < inputs.size(); ++n) Write(std::to_string(n), inputs[n]);
    RunCompress(options);
    for (std::size_t n = 0; n < inputs.size(); ++n) {
      const std::string name = std::to_string(n) + ".Z";
      const Bytes theirs = Read(name);
      ASSERT_GT(theirs.size(), 3U);
      const Outcome back = Unpack(
          WithHeader(inputs[n].size(), theirs[2], Bytes(theirs.begin() + 3, theirs.end())), inputs[n].size());
      EXPECT_EQ(back.rc, 1) << options;
      EXPECT_EQ(back.out, inputs[n]) << options << " " << n;
      std::filesystem::remove(name);
    }
  }
}

// --- Hostile streams

// 9-bit codes, at most 255 of them: enough for every rule.
Bytes NineBits(std::initializer_list<unsigned> codes) {
  Bytes out;
  unsigned bits = 0, count = 0;
  for (const unsigned code : codes) {
    bits |= code << count;
    for (count += 9; count >= 8; count -= 8, bits >>= 8) out.push_back(static_cast<std::uint8_t>(bits));
  }
  if (count > 0) out.push_back(static_cast<std::uint8_t>(bits));
  return out;
}

struct HandMade {
  const char* what;
  std::uint8_t parameter;
  std::initializer_list<unsigned> codes;
  std::size_t length;
  int expected;
  const char* out;
};

TEST(LzcDecoder, HandMadeStreams) {
  const HandMade table[] = {
      {"literals", 0x8D, {'a', 'b', 'c'}, 3, 1, "abc"},
      {"the string that is being made", 0x8D, {'a', 257, 258, 259}, 10, 1, "aaaaaaaaaa"},
      {"no block mode: 256 is the first string", 0x0D, {'a', 256, 257}, 6, 1, "aaaaaa"},
      {"CLEAR skips the group", 0x8D, {'a', 'b', 256, 0, 0, 0, 0, 0, 'c', 'd', 257}, 6, 1, "abcdcd"},
      {"the string ends beyond the length", 0x8D, {'a', 257, 258}, 4, 1, "aaaa"},
      {"more codes than the length needs", 0x8D, {'a', 'b', 'c', 511}, 3, 1, "abc"},
      {"no bytes at all", 0x8D, {}, 0, 1, ""},
      {"first code is no literal", 0x8D, {257}, 2, -54, ""},
      {"first code is CLEAR", 0x8D, {256}, 2, -54, ""},
      {"a code above the next", 0x8D, {'a', 258}, 9, -54, "a"},
      {"a code far above", 0x8D, {'a', 'b', 511}, 9, -54, "ab"},
      {"CLEAR, then a string", 0x8D, {'a', 'b', 256, 0, 0, 0, 0, 0, 257}, 9, -54, "ab"},
      {"CLEAR, then CLEAR", 0x8D, {'a', 'b', 256, 0, 0, 0, 0, 0, 256}, 9, -54, "ab"},
      {"ends early", 0x8D, {'a', 'b'}, 9, 3, "ab"},
      {"9 bits", 0x89, {'a', 257}, 3, 1, "aaa"},
  };
  for (const HandMade& row : table) {
    const Bytes stream = WithHeader(row.length, row.parameter, NineBits(row.codes));
    const std::string expected = row.out;
    for (const std::size_t piece : {1U, 100U}) {
      for (const std::size_t room : {1U, 100U}) {
        Driver driver;
        const Outcome outcome = driver.Decompress(stream, piece, room);
        EXPECT_EQ(outcome.rc, row.expected) << row.what;
        if (row.expected < 0) continue;  // what came before the bad code is no promise
        EXPECT_EQ(std::string(outcome.out.begin(), outcome.out.end()), expected) << row.what;
      }
    }
  }
}

// A dictionary of 9 bits that is full stays at 9 bits.
TEST(LzcDecoder, TheWidthStopsAtMaxBits) {
  Bytes codes;
  unsigned bits = 0, count = 0;
  Bytes expected;
  Random random(3);
  for (int n = 0; n < 2000; ++n) {
    const unsigned code = random() & 0xFF;
    expected.push_back(static_cast<std::uint8_t>(code));
    bits |= code << count;
    for (count += 9; count >= 8; count -= 8, bits >>= 8) codes.push_back(static_cast<std::uint8_t>(bits));
  }
  codes.push_back(static_cast<std::uint8_t>(bits));
  EXPECT_EQ(Unpack(WithHeader(2000, 0x89, codes), 2000).out, expected);
}

// Any bytes are either a stream or an error, whatever the pieces, and give the same every time.
TEST(LzcDecoder, SurvivesAnything) {
  Random random(11);
  const Bytes good = Pack(MakeData(Kind::kBinary, 60000));
  for (int round = 0; round < 300; ++round) {
    Bytes stream = good;
    if (round % 2 == 0) {
      for (std::size_t n = CS_HEAD_SIZE; n < stream.size(); ++n)
        stream[n] = static_cast<std::uint8_t>(random());
    } else {
      for (int flips = 0; flips < 5; ++flips) {
        stream[CS_HEAD_SIZE + random() % (stream.size() - CS_HEAD_SIZE)] ^=
            static_cast<std::uint8_t>(1U << random() % 8);
      }
    }
    stream[7] = static_cast<std::uint8_t>(random());
    Driver driver;
    const Outcome whole = driver.Decompress(stream, stream.size(), 60000);
    const Outcome pieces = driver.Decompress(stream, 777, 1 + random() % 3000);
    EXPECT_EQ(whole.rc, pieces.rc);
    if (whole.rc >= 0) {
      EXPECT_EQ(whole.out, pieces.out);
    }
    EXPECT_TRUE(whole.rc == 1 || whole.rc == 3 || whole.rc == -51 || whole.rc == -54) << whole.rc;
  }
}

}  // namespace
}  // namespace tolven::test

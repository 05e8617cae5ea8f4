#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "signing/hash/hash.h"
#include "support/scratch.h"

namespace tolven {
namespace {

std::string HexOf(const HaContext& context) {
  char text[2 * kHaMaxDigestLength + 1];
  std::size_t written = 0;
  EXPECT_EQ(haHexEncodeDigest(&context, text, sizeof text, &written), HA_OK);
  return std::string(text, written);
}

std::string HashOf(int id, std::string_view data) {
  HaContext context;
  EXPECT_EQ(haHashAll(&context, data.data(), data.size(), id), HA_OK);
  return HexOf(context);
}

std::string RandomBytes(std::size_t length, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(length, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

struct Vector {
  int id;
  std::string_view text;
  std::string_view digest;
};

// RFC 1321 appendix A.5, the FIPS 180-4 example values, and the check value of the CRC catalogue.
constexpr Vector kPublished[] = {
    {kHaMd5, "", "d41d8cd98f00b204e9800998ecf8427e"},
    {kHaMd5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
    {kHaMd5, "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "57edf4a22be3c955ac49da2e2107b67a"},
    {kHaSha1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {kHaSha1, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
     "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
    {kHaSha256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {kHaSha256, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
     "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
    {kHaSha384, "abc",
     "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
    {kHaSha512, "abc",
     "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feebbd454d442"
     "3643ce8"
     "0e2a9ac94fa54ca49f"},
    {kHaCrc32, "123456789", "cbf43926"},
    {kHaCrc32, "", "00000000"}};

TEST(Digest, PublishedVectors) {
  for (const Vector& v : kPublished)
    EXPECT_EQ(HashOf(v.id, v.text), v.digest) << haGetAlgorithmName(v.id) << v.text;
}

constexpr std::size_t kLengths[] = {0,   1,   3,   55,  56,  57,   63,   64,   65,    111,   112,   113,
                                    119, 120, 127, 128, 129, 1000, 4095, 4096, 65535, 65536, 65537, 250001};

// One openssl process an algorithm digests all the files.
TEST(Digest, AgreesWithOpenssl) {
  test::Scratch scratch;
  std::string names;
  for (const std::size_t length : kLengths) {
    names.append(" ").append(std::to_string(length));
    scratch.Write(std::to_string(length), RandomBytes(length, static_cast<unsigned>(length)));
  }
  for (const int id : {kHaMd5, kHaSha1, kHaSha256, kHaSha384, kHaSha512}) {
    std::istringstream lines(scratch.Run(std::string("openssl dgst -r -") + haGetAlgorithmName(id) + names));
    for (const std::size_t length : kLengths) {
      std::string expected, name;
      lines >> expected >> name;
      EXPECT_EQ(HashOf(id, scratch.Read(std::to_string(length))), expected)
          << haGetAlgorithmName(id) << length;
    }
  }
}

TEST(Digest, PiecesMakeTheSameDigestAsTheWhole) {
  const std::string data = RandomBytes(1031, 7);
  for (const int id : {kHaMd5, kHaSha1, kHaSha256, kHaSha384, kHaSha512, kHaCrc32}) {
    const std::string whole = HashOf(id, data);
    for (const std::size_t step : {1u, 7u, 63u, 64u, 65u, 127u, 128u, 129u, 300u}) {
      HaContext context;
      ASSERT_EQ(haInit(&context, id), HA_OK);
      for (std::size_t at = 0; at < data.size(); at += step) {
        ASSERT_EQ(haUpdate(&context, data.data() + at, std::min(step, data.size() - at)), HA_OK);
        ASSERT_EQ(haUpdate(&context, nullptr, 0), HA_OK);
      }
      ASSERT_EQ(haFinal(&context), HA_OK);
      EXPECT_EQ(HexOf(context), whole) << haGetAlgorithmName(id) << " step " << step;
    }
  }
}

TEST(Digest, BothFormsOfSha256Agree) {
  if (!Sha256HasInstructions()) GTEST_SKIP() << "this processor has no SHA instructions";
  for (unsigned blocks = 1; blocks < 40; ++blocks) {
    const std::string data = RandomBytes(std::size_t{64} * blocks + 1, blocks);
    const auto* unaligned = reinterpret_cast<const std::uint8_t*>(data.data()) + 1;
    Sha256State portable, fast;
    Sha256CompressPortable(portable.h, unaligned, blocks);
    Sha256CompressInstructions(fast.h, unaligned, blocks);
    ASSERT_EQ(portable.h, fast.h) << blocks;
  }
}

TEST(Digest, MisuseIsReported) {
  HaContext context;
  EXPECT_EQ(haInit(nullptr, kHaSha256), HA_ENULL);
  EXPECT_EQ(haInit(&context, 0xA506), 4);
  EXPECT_EQ(haUpdate(&context, "x", 1), HA_ESTATE);
  ASSERT_EQ(haInit(&context, kHaSha256), HA_OK);
  EXPECT_EQ(haUpdate(&context, nullptr, 1), HA_ENULL);
  char text[65];
  EXPECT_EQ(haHexEncodeDigest(&context, text, sizeof text, nullptr), HA_ESTATE);
  ASSERT_EQ(haFinal(&context), HA_OK);
  EXPECT_EQ(haUpdate(&context, "x", 1), HA_ESTATE);
  EXPECT_EQ(haFinal(&context), HA_ESTATE);
  EXPECT_EQ(haHexEncodeDigest(&context, text, 64, nullptr), HA_ESIZE);
  EXPECT_EQ(haHexEncodeDigest(&context, text, 65, nullptr), HA_OK);
  EXPECT_EQ(haBase64EncodeDigest(&context, text, 44, nullptr), HA_ESIZE);
  ASSERT_EQ(haBase64EncodeDigest(&context, text, 45, nullptr), HA_OK);
  EXPECT_STREQ(text, "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
}

TEST(AlgorithmNames, AcceptedForms) {
  const std::pair<std::string_view, int> rows[] = {
      {"MD5", 0xA501},    {"MD-5", 0xA501},   {"md5", 0xA501},     {"SHA1", 0xA502},
      {"SHA-1", 0xA502},  {"sha256", 0xA503}, {"SHA-256", 0xA503}, {"sha-512", 0xA504},
      {"Sha384", 0xA505}, {"crc-32", 0xC320}, {"CRC32", 0xC320},   {"", 0},
      {"MD", 0},          {"MD55", 0},        {"SHA", 0},          {"SHA-", 0},
      {"SHA25", 0},       {"SHA2566", 0},     {"SHA--1", 0},       {"S-HA1", 0},
      {"SHA25-6", 0},     {"-SHA1", 0},       {"SHA1-", 0},        {"SHA 1", 0},
      {"CRC3", 0},        {"SHA224", 0},      {"M-D5", 0},         {"MD5-", 0}};
  for (const auto& [name, id] : rows) EXPECT_EQ(haGetAlgorithm(name.data(), name.size()), id) << name;
  EXPECT_EQ(haGetAlgorithm(nullptr, 6), 0);
  EXPECT_EQ(haGetAlgorithm("SHA2567", 6), 0xA503) << "the length counts, not the zero byte";
}

}  // namespace
}  // namespace tolven

#include "signing/hash/codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/scratch.h"
#include "support/split.h"

namespace tolven {
namespace {

constexpr int kBoth = kHaBase64Pad | kHaBase64Lines;
static_assert(kBoth == 3);

std::string Encode(std::string_view data, int mode = kBoth, std::size_t lineLength = 64) {
  std::string text(2 * data.size() + 16, '\0');
  std::size_t written = 0;
  EXPECT_EQ(
      haEncBase64SB(data.data(), data.size(), mode, lineLength, "\n", text.data(), text.size(), &written), 0);
  EXPECT_EQ(text[written], '\0');
  text.resize(written);
  return text;
}

int Decode(std::string_view text, std::string& data, int mode = kBoth, std::size_t lineLength = 64) {
  std::vector<std::uint8_t> bytes(text.size() / 4 * 3 + 3);
  std::size_t written = 0;
  const int result =
      haDecBase64SB(text.data(), text.size(), mode, lineLength, "\n", bytes.data(), bytes.size(), &written);
  data.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(written));
  return result;
}

// RFC 4648 section 10.
TEST(Base64, PublishedVectors) {
  const std::pair<std::string_view, std::string_view> rows[] = {{"", ""},
                                                                {"f", "Zg=="},
                                                                {"fo", "Zm8="},
                                                                {"foo", "Zm9v"},
                                                                {"foob", "Zm9vYg=="},
                                                                {"fooba", "Zm9vYmE="},
                                                                {"foobar", "Zm9vYmFy"}};
  for (const auto& [data, text] : rows) {
    EXPECT_EQ(Encode(data), text);
    std::string bare(text.substr(0, text.find('=')));
    EXPECT_EQ(Encode(data, 0), bare);
    std::string back;
    ASSERT_EQ(Decode(text, back), 0) << text;
    EXPECT_EQ(back, data);
    ASSERT_EQ(Decode(bare, back, 0), 0) << bare;
    EXPECT_EQ(back, data);
  }
}

TEST(Base64, LinesAsOpensslWritesThem) {
  test::Scratch scratch;
  std::mt19937 random(11);
  for (const std::size_t length : {1u, 47u, 48u, 49u, 95u, 96u, 97u, 1000u, 4096u}) {
    std::string data(length, '\0');
    for (char& c : data) c = static_cast<char>(random());
    scratch.Write("data", data);
    std::string expected = scratch.Run("openssl base64 -e -in data");
    ASSERT_EQ(expected.back(), '\n');
    expected.pop_back();  // ours separates lines, it does not end them
    EXPECT_EQ(Encode(data), expected) << length;
    std::string back;
    ASSERT_EQ(Decode(expected, back), 0) << length;
    EXPECT_EQ(back, data);
  }
}

TEST(Base64, OnlyOneSpellingIsRight) {
  const std::string line(64, 'A');
  auto texts = test::Split(
      "Zg|Zg=|Zg===|Zg==\n|\nZg==|Zg= =|Z===|====|Zh==|Zm9=|Zg==Zg==|Zm-v|Zm_v|Zm9v\r|Zm9\x80|Zm9v "
      "Zm9v|Zm9v\nZm9v");
  for (const char* behind : {"\r\nAAAA", "\n", "\n\nAAAA", "\n=AAA"}) texts.push_back(line + behind);
  texts.insert(texts.end(), {line + line, std::string("Zm9\0", 4)});
  for (const std::string& text : texts) {
    std::string back;
    EXPECT_EQ(Decode(text, back), HA_CODEC_ETEXT) << text;
  }
  std::string back;
  EXPECT_EQ(Decode(line + "\nAAAA", back), 0);
  EXPECT_EQ(back.size(), 51u);
}

TEST(Base64, SmallOutputAndMisuse) {
  char text[16];
  std::size_t written = 0;
  for (std::size_t size = 0; size < 9; ++size) {
    EXPECT_EQ(haEncBase64SB("abcd", 4, 3, 64, "\n", text, size, &written), -3) << size;
  }
  EXPECT_EQ(haEncBase64SB("abcd", 4, 3, 64, "\n", text, 9, &written), 0);
  EXPECT_EQ(written, 8u);
  EXPECT_EQ(haEncBase64SB("abcd", 4, 4, 64, "\n", text, 16, &written), HA_CODEC_EMODE);
  EXPECT_EQ(haEncBase64SB("abcd", 4, 3, 63, "\n", text, 16, &written), HA_CODEC_EMODE);
  EXPECT_EQ(haEncBase64SB("abcd", 4, 3, 64, nullptr, text, 16, &written), HA_CODEC_ENULL);
  EXPECT_EQ(haEncBase64SB(nullptr, 4, 3, 64, "\n", text, 16, &written), HA_CODEC_ENULL);
  std::uint8_t bytes[3];
  EXPECT_EQ(haDecBase64SB("YWJjZA==", 8, 3, 64, "\n", bytes, 3, &written), HA_CODEC_ESIZE);
  EXPECT_EQ(haDecBase64SB("YWJj", 4, 3, 64, "\n", bytes, 3, &written), 0);
}

TEST(Base64, WideTextIsTheSameText) {
  const std::string data = "any carnal pleasure.";
  char16_t wide[64];
  std::size_t written = 0;
  ASSERT_EQ(haEncBase64UC(data.data(), data.size(), 3, 8, u"\r\n", wide, 64, &written), 0);
  const std::u16string_view text(wide, written);
  EXPECT_EQ(text, u"YW55IGNh\r\ncm5hbCBw\r\nbGVhc3Vy\r\nZS4=");
  std::uint8_t bytes[64];
  ASSERT_EQ(haDecBase64UC(wide, written, 3, 8, u"\r\n", bytes, 64, &written), 0);
  EXPECT_EQ(std::string(bytes, bytes + written), data);
  // U+0141 has the low byte of 'A': it is no digit.
  const char16_t lookalike[] = u"\u0141AAA";
  EXPECT_EQ(haDecBase64UC(lookalike, 4, 1, 0, nullptr, bytes, 64, &written), HA_CODEC_ETEXT);
  EXPECT_EQ(haDecBase16UC(lookalike, 4, bytes, 64, &written), HA_CODEC_ETEXT);
  ASSERT_EQ(haDecBase16UC(u"00fFa9", 6, bytes, 3, &written), 0);
  EXPECT_EQ((std::vector<std::uint8_t>(bytes, bytes + written)), (std::vector<std::uint8_t>{0, 255, 0xa9}));
}

TEST(Base16, DigitsOnly) {
  std::uint8_t bytes[4];
  std::size_t written = 0;
  ASSERT_EQ(haDecBase16SB("00ff7F", 6, bytes, 4, &written), 0);
  EXPECT_EQ((std::vector<std::uint8_t>(bytes, bytes + written)), (std::vector<std::uint8_t>{0, 255, 127}));
  for (const std::string_view text : {"0", "0g", "0x", " 0", "-1", "\xb0\xb1", "000"}) {
    EXPECT_EQ(haDecBase16SB(text.data(), text.size(), bytes, 4, &written), HA_CODEC_ETEXT) << text;
  }
  EXPECT_EQ(haDecBase16SB("00ff7F", 6, bytes, 2, &written), HA_CODEC_ESIZE);
  EXPECT_EQ(haDecBase16SB(nullptr, 2, bytes, 4, &written), HA_CODEC_ENULL);
}

}  // namespace
}  // namespace tolven

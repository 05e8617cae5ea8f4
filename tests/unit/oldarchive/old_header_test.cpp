#include "oldarchive/old_header.h"

#include <gtest/gtest.h>

#include <string>

namespace tolven {
namespace {

struct LineCase {
  const char* line;
  const char* name;
  std::uint32_t mode;
  std::uint64_t compressed, size;
  std::int64_t mtime;
  std::uint64_t checksum;
};

TEST(OldLine, Fields) {
  const LineCase cases[] = {
      {"F a.txt   644         30        20 1000000000 4294967295", "a.txt", 0644, 30, 20, 1000000000,
       4294967295},
      {"F a 644 30 20 7", "a", 0644, 30, 20, 7, 0},
      {"F\ta\t100755\t30\t20\t-7\t5\r", "a", 0100755, 30, 20, -7, 5},
      {"F two words 644 30 20 7 5", "two words", 0644, 30, 20, 7, 5},
      {"F  lead and  trail    644 30 20 7 5", " lead and  trail", 0644, 30, 20, 7, 5},
      {"F 1 2 3 4 5", "1", 02, 3, 4, 5, 0},
      // The first scan that works decides, whatever follows its seven fields.
      {"F a 1 2 3 4 5 6", "a", 01, 2, 3, 4, 5},
      // Padding is a minimum: ten digits of size are one number.
      {"F big 644 30 2147483648 7 5", "big", 0644, 30, 2147483648U, 7, 5},
      {"D dir 755 0 0 7 0", "dir", 0755 | 0x4000, 0, 0, 7, 0},
  };
  for (const LineCase& expected : cases) {
    FileInfo info;
    ASSERT_EQ(ParseEntryLine(expected.line, info), OldLine::kEntry) << expected.line;
    EXPECT_EQ(info.name, expected.name);
    EXPECT_EQ(info.mode, expected.mode) << expected.line;
    EXPECT_EQ(info.compressedLength, expected.compressed) << expected.line;
    EXPECT_EQ(info.size, expected.size) << expected.line;
    EXPECT_EQ(info.mtime, expected.mtime) << expected.line;
    EXPECT_EQ(info.checksum, expected.checksum) << expected.line;
    EXPECT_EQ(info.type, expected.line[0]);
  }
}

TEST(OldLine, Refused) {
  const char* lines[] = {
      "",
      "F",
      "F ",
      "F a",
      "F a 644 30 20",
      "F a 644 30 20 7 5\vF b 644 30 20 7 5",  // two lines whose newline is damaged
      "D d 755 30 0 7 0",                      // a file whose letter is damaged
      "L a 644 30 20 7 5",                     // no such type
      "Fa 644 30 20 7 5",                      // no blank behind the type
      "F 644 30 20 7",                         // the name is missing
      "F a 648 30 20 7 5",                     // not octal
      "F a -644 30 20 7 5",                    // negative, but for the time
      "F a 644 -30 20 7 5",
      "F a 644 30 -20 7 5",
      "F a 644 30 20 7 -5",
      "F a b 644 30 20 -7 5",  // digits only, once the name has blanks
      "F a x 30 20 7 5",       // each of the five numbers
      "F a 644 x 20 7 5",
      "F a 644 30 2x 7 5",
      "F a 644 30 20 x 5",
      "F a 644 30 20 7 x",
      "F a b 644 30 20 7",  // six fields and a name with blanks
      "F a 644 30 20 0x7 5",
      "F a 644 99999999999999999999999 20 7 5",
      "F a 777777777777777777777777 30 20 7 5",
      "F a 644 30 99999999999999999999999 7 5",
      "F a 644 30 20 7 99999999999999999999999",
  };
  for (const char* line : lines) {
    FileInfo info;
    EXPECT_EQ(ParseEntryLine(line, info), OldLine::kFormatError) << line;
  }
}

TEST(OldLine, TimeOutsideTheSystemType) {
  FileInfo info;
  EXPECT_EQ(ParseEntryLine("F a 644 30 20 9223372036854775807 5", info), OldLine::kEntry);
  EXPECT_EQ(ParseEntryLine("F a 644 30 20 9223372036854775808 5", info), OldLine::kTimeError);
  EXPECT_EQ(ParseEntryLine("F a b 644 30 20 9223372036854775808 5", info), OldLine::kTimeError);
}

using State = HeaderParser::State;

State FeedWhole(HeaderParser& parser, const std::string& text) {
  return parser.Feed({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

TEST(OldHeader, States) {
  const std::string entry = "F a 644 30 20 7 5\n";
  const struct {
    std::string text;
    State state;
  } cases[] = {
      {"# c\n#\n" + entry + "#\n", State::kDone},
      {entry + "# the end\nbinary", State::kDone},
      {entry + "#", State::kReading},  // cut: the closing line needs its newline
      {entry, State::kReading},
      {"", State::kReading},
      {"#\n#\n#\n", State::kReading},  // comments alone close nothing
      {"\n" + entry + "#\n", State::kFormatError},
      {entry + "\n#\n", State::kFormatError},
      {entry + " #\n", State::kFormatError},
      {std::string("# \0\n", 4) + entry + "#\n", State::kFormatError},
      {"F " + std::string("a\0b", 3) + " 644 30 20 7 5\n#\n", State::kFormatError},
      {"#" + std::string(4095, 'x') + "\n" + entry + "#\n", State::kDone},
      {"#" + std::string(4096, 'x') + "\n" + entry + "#\n", State::kFormatError},
      {std::string(5000, 'x'), State::kFormatError},  // no newline needed to see it
      {"F a 644 30 20 99999999999999999999 5\n#\n", State::kTimeError},
      // Positions that no file could have.
      {"F a 644 9223372036854775807 1 7\n#\n", State::kFormatError},
      {"F a 644 18446744073709551615 1 7\nF b 644 2 1 7\n#\n", State::kFormatError},
  };
  for (const auto& expected : cases) {
    HeaderParser whole;
    EXPECT_EQ(FeedWhole(whole, expected.text), expected.state) << expected.text.substr(0, 60);
    HeaderParser bytewise;
    State state = State::kReading;
    for (const char c : expected.text) state = FeedWhole(bytewise, std::string(1, c));
    EXPECT_EQ(state, expected.state) << "byte by byte: " << expected.text.substr(0, 60);
  }
}

TEST(OldHeader, EveryLengthCountsForThePositions) {
  const std::string header = "# c\nF a 644 30 20 7\nD d 755 3 0 7\nF empty 644 7 0 7\nF b 644 9 1 7\n# end\n";
  const std::string text = header + std::string(49, 'x');
  for (std::size_t split = 0; split <= text.size(); ++split) {
    HeaderParser parser;
    FeedWhole(parser, text.substr(0, split));
    ASSERT_EQ(FeedWhole(parser, text.substr(split)), State::kDone);
    std::string found;
    for (EntryWalk walk(parser.Entries()); walk.Next();) {
      const FileInfo& info = walk.Info();
      found += info.name + " +" + std::to_string(info.position - header.size()) + " ";
      EXPECT_EQ(parser.Entries().At(info.line).name, info.name);
    }
    EXPECT_EQ(found, "a +0 d +30 empty +33 b +40 ") << split;
  }
}

}  // namespace
}  // namespace tolven

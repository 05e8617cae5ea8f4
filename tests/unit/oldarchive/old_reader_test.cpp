// The flat entry points: their arguments, what they hand back, what they print. Whole archives and what is
// left on disk are the end-to-end tests' business.
#include "oldarchive/old_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "report/log_man.h"
#include "report/run_status.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using Arguments = std::vector<const char*>;
using test::ReadFile;
using test::WriteFile;

class OldReader : public test::TempDirTest {
 protected:
  OldReader() {
    // "wrong" as zlib codes it, under a checksum that is not its own.
    const std::string stream("\x05\x00\x00\x00\x12\x1f\x9d\x02\xac\xbc(?/\x1d\x00\x00\x00", 17);
    WriteFile("wrong.orv", "F w 644 17 5 7 4711\n#\n" + stream);
    WriteFile("a.orv", "D d 755 0 0 7\nF d/a 644 17 5 7 3790039559\nF b 644 0 6 7\n#\n" + stream);
  }

  int Call(Arguments arguments) {
    arguments.insert(arguments.begin(), "orv");
    return iaxxorvl_ORV_Callback(static_cast<int>(arguments.size()), arguments.data(), Note, &m_events,
                                 &m_error, &m_text);
  }
  static void Note(OrvEvent event, const char* name, void* events) {
    *static_cast<std::string*>(events) += std::string(name) + (event == OrvEvent::kHeaderRead ? ": " : "; ");
  }

  CAPILogMan m_log;
  RunStatus m_status{.exitCode = 0, .logManager = &m_log};
  RunStatusScope m_scope{m_status};
  std::string m_events;
  int m_error = 0;
  std::string m_text;
};

TEST_F(OldReader, RefusedCalls) {
  WriteFile("binary", std::string("a\0b\n", 4));
  WriteFile("long", std::string(4097, 'x'));
  const struct {
    Arguments arguments;
    int code;
    const char* text;
  } cases[] = {
      {{}, 23, "first specify the command"},
      {{"-f", "a"}, 23, "first specify the command f"},
      {{"-xq"}, 22, "option unknown q"},
      {{"-x", "-flaT"}, 22, "option unknown -flaT"},
      {{"-xf"}, 21, "option without filename specified -f"},
      {{"-xf", "-flat"}, 21, "option without filename specified -f"},
      {{"-x", "-R", ""}, 21, "option without filename specified -R"},
      {{"-xf", "a", "-f", "b"}, 20, "use option only once -f"},
      {{"-c", "-C", "d", "-P", "a"}, 24, "don't use C-option together with P-option"},
      {{"-x", "-C", "d"}, 25, "use C-option only with create"},
      {{"-d", "-R", "d"}, 33, "use R-option only with extract"},
      {{"-ds"}, 35, "use s-option only with extract or list content"},
      {{"-x", "-p", "648"}, 28, "p-options needs an octal value 648"},
      {{"-x", "-p", "10000"}, 7, "can't use permission 10000"},
      {{"-c"}, 30, "no filename(s) specified"},
      {{"-cf", "new.orv", "b"}, 11, "can't compress new.orv"},
      {{"-tf", "none.orv"}, 4, "none.orv: No such file or directory"},
      {{"-t"}, 4, "DEFAULT.ORV: No such file or directory"},
      {{"-tf", "a.orv", "-A", "none"}, 4, "none: No such file or directory"},
      {{"-tf", "a.orv", "-A", "binary"}, 9, "format error in include-file (A-option) binary"},
      {{"-tf", "a.orv", "-A", "long"}, 9, "format error in include-file (A-option) long"},
      {{"-xf", "a.orv", "-R", "none"}, 101, "can't change to directory none: No such file or directory"},
      {{"-dVf", "wrong.orv"}, 14, "checksum error w"},
      {{"-xVf", "wrong.orv"}, 14, "checksum error w"},
  };
  for (const auto& expected : cases) {
    EXPECT_EQ(Call(expected.arguments), 0) << expected.text;
    EXPECT_EQ(m_error, expected.code) << expected.text;
    EXPECT_EQ(m_text, expected.text);
  }
  const char* hole[] = {"orv", nullptr};
  EXPECT_EQ(iaxxorvl_ORV(2, hole, &m_error, nullptr), 0);
  EXPECT_EQ(m_error, OLD_NULL_PARAMETER);
  EXPECT_EQ(m_status.exitCode, 0) << "the numbers go to the caller alone";
  EXPECT_FALSE(std::filesystem::exists("w"));
}

TEST_F(OldReader, CallsThatSucceed) {
  WriteFile("list", "# comment\n\n  d//a \r\n b");
  std::filesystem::create_directory("out");
  std::filesystem::create_directory("a,b");
  const struct {
    Arguments arguments;
    const char* events;
  } cases[] = {
      {{"tvf", "./a.orv", "b"}, "a.orv: b; "},
      {{"-dvf", "a.orv,", "./d/"}, "a.orv: d; d/a; "},
      {{"-df", "a.orv", "--", "./d/"}, "a.orv: "},  // as it is, and no entry is called so
      {{"-xf", "a.orv", "-A", "list", "-R", "out"}, "a.orv: d/a; b; "},
      {{"-xf", "a.orv", "-R", "a,b", "-flat", "d/*"}, "a.orv: a; "},
      {{"-xf", "wrong.orv"}, "wrong.orv: w; "},  // checksums only with the letter
      {{"-tgf", "*.ORV", "b", "w"}, "a.orv: b; wrong.orv: w; "},
      {{"-df", "a.orv, a.orv", "b"}, "a.orv: b; a.orv: b; "},
      {{"-xsf", "a.orv"}, "a.orv: "},
  };
  for (const auto& expected : cases) {
    m_events.clear();
    EXPECT_EQ(Call(expected.arguments), 1) << m_text;
    // The order of a pattern's archives is the directory's.
    if (m_events.starts_with("wrong.orv: w; a")) m_events = "a.orv: b; wrong.orv: w; ";
    EXPECT_EQ(m_events, expected.events);
  }
  EXPECT_EQ(ReadFile("out/d/a"), "wrong");
  EXPECT_EQ(ReadFile("a,b/a"), "wrong");
  EXPECT_TRUE(std::filesystem::exists("w") && !std::filesystem::exists("d") && !std::filesystem::exists("b"));
  for (const char* line : {"rw-r--r--          6  ", "t d\nt d/a\n", "requires approximately"}) {
    EXPECT_NE(m_log.GetOutput().find(line), std::string::npos) << line << m_log.GetOutput();
  }
}

TEST_F(OldReader, WhatHasNoEffectIsSaid) {
  EXPECT_EQ(Call({"-tPVf", "a.orv", "-p", "644", "none"}), 1);
  EXPECT_EQ(m_log.GetOutput(),
            "TOLVEN: option -P not supported for archives of the old format (option ignored)\n"
            "TOLVEN: option -p not supported for archives of the old format (option ignored)\n"
            "TOLVEN: option V not supported for archives of the old format (option ignored)\n");
}

TEST_F(OldReader, OtherEntryPoints) {
  const char* list[] = {"orv", "-tf", "a.orv"};
  EXPECT_EQ(iaxxorvl_ORV_Extract(3, list, &m_error, &m_text), 0);
  EXPECT_EQ(m_error, 23);
  const char* extract[] = {"orv", "-xf", "a.orv"};
  EXPECT_EQ(iaxxorvl_ExtractArchive(3, extract, nullptr, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(ReadFile("d/a"), "wrong");
  EXPECT_EQ(iaxxorvl_ORV(3, extract, &m_error, &m_text), 1);
  EXPECT_EQ(iaxxorvl_ORV_Callback2(3, extract, nullptr, nullptr, "./a,b", &m_error, &m_text), 0);
  EXPECT_EQ(m_text, "a,b: No such file or directory");

  std::uint64_t size = 0;
  EXPECT_EQ(iaxxorvl_UncomprArchiveBytes("a.orv", &size, &m_error, &m_text), 1);
  EXPECT_EQ(size, 11U);
  EXPECT_EQ(iaxxorvl_UncomprArchiveBytes(nullptr, &size, &m_error, &m_text), 0);
  EXPECT_EQ(m_error, 6);
  WriteFile("huge.orv", "F a 644 0 18446744073709551615 7\nF b 644 0 1 7\n#\n");
  EXPECT_EQ(iaxxorvl_UncomprArchiveBytes("huge.orv", &size, &m_error, &m_text), 0);
  EXPECT_EQ(m_error, 12);
  EXPECT_EQ(size, 11U);
}

}  // namespace
}  // namespace tolven

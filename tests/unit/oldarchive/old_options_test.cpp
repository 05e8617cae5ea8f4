#include "oldarchive/old_options.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>

#include "oldarchive/old_messages.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using Arguments = std::vector<const char*>;

struct Result {
  bool done;
  int error = 0;
  std::string text;
};

Result Parse(Arguments arguments, AppData& app) {
  arguments.insert(arguments.begin(), "orv");
  Result result{};
  result.done =
      GetOptions(static_cast<int>(arguments.size()), arguments.data(), app, &result.error, &result.text);
  return result;
}

TEST(OldOptions, Refused) {
  const struct {
    Arguments arguments;
    int code;
    const char* text;
  } cases[] = {
      {{}, 23, "first specify the command"},
      {{"-f", "a"}, 23, "first specify the command f"},
      {{"v"}, 23, "first specify the command v"},
      {{"-xq"}, 22, "option unknown q"},
      {{"-xt"}, 22, "option unknown t"},
      {{"-x", "-Q"}, 22, "option unknown -Q"},
      {{"-xf"}, 21, "option without filename specified -f"},
      {{"-xf", "-flat"}, 21, "option without filename specified -f"},
      {{"-x", "-A"}, 21, "option without filename specified -A"},
      {{"-x", "-R", ""}, 21, "option without filename specified -R"},
      {{"-xf", "a", "-f", "b"}, 20, "use option only once -f"},
      {{"-x", "-R", "a", "-R", "b"}, 20, "use option only once -R"},
      {{"-c", "-C", "d", "-P", "a"}, 24, "don't use C-option together with P-option"},
      {{"-x", "-C", "d"}, 25, "use C-option only with create"},
      {{"-x", "-C", "d", "-P"}, 24, "don't use C-option together with P-option"},
      {{"-d", "-T", "f"}, 26, "use T-option only with create"},
      {{"-t", "-X", "f"}, 27, "use X-option only with create"},
      {{"-x", "-p", "rw"}, 28, "p-options needs an octal value rw"},
      {{"-x", "-p", "648"}, 28, "p-options needs an octal value 648"},
      {{"-x", "-p"}, 28, "p-options needs an octal value -p"},
      {{"-x", "-p", "10000"}, 7, "can't use permission 10000"},
      {{"-t", "-R", "d"}, 33, "use R-option only with extract"},
      {{"-ds"}, 35, "use s-option only with extract or list content"},
      {{"-c"}, 30, "no filename(s) specified"},
  };
  for (const auto& expected : cases) {
    AppData app;
    const Result result = Parse(expected.arguments, app);
    EXPECT_FALSE(result.done) << expected.text;
    EXPECT_EQ(result.error, expected.code) << expected.text;
    EXPECT_EQ(result.text, expected.text);
  }
  AppData app;
  int error = 0;
  const char* hole[] = {"orv", nullptr};
  EXPECT_FALSE(GetOptions(2, hole, app, &error, nullptr));
  EXPECT_EQ(error, OLD_NULL_PARAMETER);
}

TEST(OldOptions, Taken) {
  AppData app;
  const Result result =
      Parse({"xvgVf", "./MY ARCHIVE.ORV,", "-flat", "-A", "list", "-R", "out", "./a//b", "c/"}, app);
  EXPECT_TRUE(result.done) << result.text;
  EXPECT_EQ(app.command, 'x');
  EXPECT_TRUE(app.verbose && app.ignoreCase && app.compareChecksums && app.paths.flat && !app.spaceCheck);
  EXPECT_EQ(app.archiveName, "MY ARCHIVE.ORV");
  EXPECT_EQ(app.includeFile, "list");
  EXPECT_EQ(app.targetDir, "out");
  EXPECT_EQ(app.names, (std::vector<std::string>{"a/b", "c"}));

  AppData plain;
  EXPECT_TRUE(Parse({"-ts"}, plain).done);
  EXPECT_TRUE(plain.spaceCheck);
  EXPECT_EQ(plain.archiveName, "DEFAULT.ORV");
}

TEST(OldOptions, WhatHasNoEffectIsSaid) {
  CAPILogMan log;
  RunStatus status{.exitCode = 0, .logManager = &log};
  const RunStatusScope scope(status);
  AppData app;
  EXPECT_TRUE(Parse({"-xP", "-p", "644"}, app).done);
  EXPECT_EQ(log.GetOutput(),
            "TOLVEN: option -P not supported for archives of the old format (option ignored)\n"
            "TOLVEN: option -p not supported for archives of the old format (option ignored)\n");
}

class OldFiles : public test::TempDirTest {};

TEST_F(OldFiles, IncludeFile) {
  AppData app;
  app.names = {"given"};
  int error = 0;
  std::string text;
  EXPECT_TRUE(DoAOption(app, &error, &text));

  app.includeFile = "list";
  EXPECT_FALSE(DoAOption(app, &error, &text));
  EXPECT_EQ(error, OLD_SYSTEM);
  EXPECT_EQ(text, "No such file or directory list");

  test::WriteFile("list", "# comment\n\n  two words \r\n./a//b\n #literal\n*.c");
  EXPECT_TRUE(DoAOption(app, &error, &text));
  EXPECT_EQ(app.names, (std::vector<std::string>{"given", "two words", "a/b", "#literal", "*.c"}));

  for (const std::string& bad : {std::string(4097, 'x'), std::string("a\0b\n", 4)}) {
    test::WriteFile("list", bad);
    EXPECT_FALSE(DoAOption(app, &error, &text));
    EXPECT_EQ(error, OLD_INCLUDE_FORMAT);
    EXPECT_EQ(text, "format error in include-file (A-option) list");
  }
}

TEST_F(OldFiles, ArchiveList) {
  test::WriteFile("K1.orv", "");
  test::WriteFile("k2.ORV", "");
  const struct {
    Arguments arguments;
    std::vector<std::string> archives;
  } cases[] = {
      {{"orv", "-x"}, {}},
      {{"orv", "-xf", "A B.ORV"}, {"A B.ORV"}},
      {{"orv", "-xf", "A B.ORV,"}, {"A B.ORV"}},
      {{"orv", "-xf", "A.ORV,, B.ORV"}, {"A.ORV", "B.ORV"}},
      {{"orv", "-xf", "K*.orv"}, {"K1.orv"}},
      {{"orv", "-xgf", "k1.ORV"}, {"K1.orv"}},
      {{"orv", "-xf", "Z*"}, {"Z*"}},
  };
  for (const auto& expected : cases) {
    std::vector<std::string> archives;
    ASSERT_TRUE(ListArchives(static_cast<int>(expected.arguments.size()), expected.arguments.data(), archives,
                             nullptr, nullptr));
    EXPECT_EQ(archives, expected.archives);
  }
}

TEST(OldMessages, TextArgumentAndReason) {
  int error = 0;
  std::string text;
  errno = EACCES;
  EXPECT_FALSE(SetErrorMessage(&error, &text, OLD_MKDIR, "dir"));
  EXPECT_EQ(text, "can't create directory dir: Permission denied");
  errno = 0;
  SetErrorMessage(&error, &text, OLD_MKDIR, "dir");
  EXPECT_EQ(text, "can't create directory dir");
  SetErrorMessage(&error, &text, OLD_SYSTEM, "file");
  EXPECT_EQ(text, "Input/output error file");
  errno = EACCES;
  SetErrorMessage(&error, &text, OLD_CUT_ARCHIVE, "a.orv");
  EXPECT_EQ(error, 37);
  EXPECT_EQ(text,
            "Archive seems to be corrupt (more bytes requested for decompress than are left in the archive); "
            "archive is a.orv");
}

TEST(OldMessages, ExhaustedMemoryIsAMessage) {
  int error = 0;
  std::string text;
  EXPECT_EQ(WithoutExceptions(&error, &text, []() -> bool { throw std::bad_alloc(); }), 0);
  EXPECT_EQ(error, 5);
  EXPECT_EQ(text, "can't allocate memory");
}

}  // namespace
}  // namespace tolven

#include "oldarchive/old_options.h"

#include <gtest/gtest.h>

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
      {{"-xq"}, 22, "option unknown q"},
      {{"-xf"}, 21, "option without filename specified -f"},
      {{"-xf", "-flat"}, 21, "option without filename specified -f"},
      {{"-x", "-R", ""}, 21, "option without filename specified -R"},
      {{"-xf", "a", "-f", "b"}, 20, "use option only once -f"},
      {{"-c", "-C", "d", "-P", "a"}, 24, "don't use C-option together with P-option"},
      {{"-x", "-p", "648"}, 28, "p-options needs an octal value 648"},
      {{"-x", "-p", "10000"}, 7, "can't use permission 10000"},
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
  EXPECT_EQ(text, "list: No such file or directory");

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

}  // namespace
}  // namespace tolven

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "cmdline/cmd_line.h"
#include "cmdline/usage_checker.h"
#include "report/except.h"
#include "report/run_status.h"
#include "support/args.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using Names = std::vector<std::string>;

class NameListsTest : public test::TempDirTest {
 protected:
  // The steps of a run up to the normalised names.
  void Prepare(const std::string& text) {
    m_args = std::make_unique<test::Args>(text);
    m_line.Reset();
    m_line.SetOptions(m_args->Count(), m_args->Vector());
    m_line.MergeFileLists();
    m_line.ProcessRenameList();
    CUsageChecker(m_line).Check();
    m_line.FormatFilenames();
  }
  // The names that are looked up as they stand.
  Names Literal() const {
    Names literal;
    for (const std::string& name : m_line.GetNames()) {
      if (m_line.IsLiteralName(name)) literal.push_back(name);
    }
    return literal;
  }
  std::string NewName(const std::string& oldName) const {
    std::string name = "(none)";
    m_line.FindNewName(oldName, name);
    return name;
  }
  // The number of the exception that `text` ends with.
  int Fails(const std::string& text) {
    RunStatus status;
    RunStatusScope scope(status);
    try {
      Prepare(text);
    } catch (const CExcept& except) {
      m_message = except.GetMsg();
      EXPECT_EQ(except.GetNumber(), status.exitCode);
      return except.GetNumber();
    }
    return 0;
  }

  std::unique_ptr<test::Args> m_args;
  CCmdLine m_line;
  std::string m_message;
};

TEST_F(NameListsTest, TypedNamesAreNormalised) {
  const std::pair<std::string, Names> cases[] = {
      {"-c dir/ dir", {"dir"}}, {"-c b a b a", {"a", "b"}}, {"-c a\\b", {"a/b"}},
      {"-c /", {"/"}},          {"-c //", {"/"}},           {"-c a//", {"a/"}},
      {"-c .", {"*"}},          {"-c ./", {"*"}},           {"-c . a * .", {"*", "a"}},
      {"-c . a", {"a", "*"}},   {"-c _a_", {" a "}},        {"-c .. .a", {"..", ".a"}},
  };
  for (const auto& [args, names] : cases) {
    Prepare(args);
    EXPECT_EQ(m_line.GetNames(), names) << args;
    EXPECT_EQ(Literal(), Names()) << args;
  }
}

TEST_F(NameListsTest, EmptyNamesAreDropped) {
  std::string program = "TOLVEN", create = "-c", empty, name = "a";
  char* argv[] = {program.data(), create.data(), empty.data(), name.data()};
  m_line.SetOptions(4, argv);
  m_line.FormatFilenames();
  EXPECT_EQ(m_line.GetNames(), Names{"a"});
}

TEST_F(NameListsTest, IncludeFile) {
  test::WriteFile("list",
                  "# comment\n"
                  "\n"
                  "  # name\n"
                  "   \n"
                  "\tb\\c/ \r\n"
                  "*.cpp\n"
                  "last");
  Prepare("-c -A list _typed_ last");
  EXPECT_EQ(m_line.GetNames(), (Names{"# name", "*.cpp", "b/c", "last", "typed"}));
  EXPECT_EQ(Literal(), (Names{"# name", "*.cpp", "b/c"})) << "\"last\" was typed too";
}

TEST_F(NameListsTest, SameTextTypedAndListedIsAPattern) {
  test::WriteFile("list", "*.c/\n*.h\n*\n");
  Prepare("-c -A list *.c");
  EXPECT_EQ(Literal(), (Names{"*", "*.h"}));
  test::WriteFile("list", ".\n*.h\n");
  Prepare("-c -A list");
  EXPECT_EQ(m_line.GetNames(), (Names{"*.h", "*"}));
  EXPECT_EQ(Literal(), Names{"*.h"}) << "every entry of the directory needs the pattern";
}

TEST_F(NameListsTest, ExcludeFile) {
  test::WriteFile("list", "a\nb\ndir/\n");
  test::WriteFile("out", "# b\n b \ndir\nother/\n*\n/\n");
  Prepare("-c -A list -X out other typed _b");
  EXPECT_EQ(m_line.GetNames(), (Names{"a", "typed"}));
  EXPECT_EQ(m_line.GetExcludeList(), (Names{"*", "/", "b", "dir", "other"}));
  test::WriteFile("out", "A\na*\n");
  Prepare("-c -A list -X out");
  EXPECT_EQ(m_line.GetNames(), (Names{"a", "b", "dir"})) << "only the same spelling excludes";
  Prepare("-c -X out b B b");
  EXPECT_EQ(m_line.GetNames(), (Names{"B", "b"}));
}

TEST_F(NameListsTest, RenameFile) {
  test::WriteFile("list",
                  "a.txt b.txt\n"
                  "  # comment\n"
                  "\n"
                  "   \n"
                  "old name.txt|new name.txt\n"
                  "  x \t |  y z \r\n"
                  "tab\tto   target name \n"
                  "d\\e f\\g\n"
                  "a.txt second\n"
                  "p q|r\n"
                  "one|two|three\n");
  Prepare("-c -T list");
  const std::pair<std::string, std::string> cases[] = {
      {"a.txt", "b.txt"},
      {"old name.txt", "new name.txt"},
      {"x", "y z"},
      {"tab", "to   target name"},
      {"d/e", "f/g"},
      {"p q", "r"},
      {"one", "two|three"},
      {"A.txt", "(none)"},
      {"# comment", "(none)"},
  };
  for (const auto& [oldName, newName] : cases) EXPECT_EQ(NewName(oldName), newName) << oldName;
  EXPECT_TRUE(m_line.HasRenames());
  EXPECT_EQ(m_line.GetNames(), (Names{"a.txt", "d/e", "old name.txt", "one", "p q", "tab", "x"}));
  EXPECT_EQ(Literal(), m_line.GetNames()) << "old names are not patterns";
}

TEST_F(NameListsTest, RenamesBecomeNamesOnlyForACreateWithoutIncludeFile) {
  test::WriteFile("renames", "a b\n");
  test::WriteFile("list", "x\n");
  Prepare("-c -T renames typed");
  EXPECT_EQ(m_line.GetNames(), (Names{"a", "typed"}));
  Prepare("-c -T renames -A list");
  EXPECT_EQ(m_line.GetNames(), Names{"x"});
  Prepare("-a -T renames typed");
  EXPECT_EQ(m_line.GetNames(), Names{"typed"});
  EXPECT_EQ(NewName("a"), "b");
}

TEST_F(NameListsTest, WrongRenameLines) {
  for (const char* line : {"alone", "alone \n", "a|\n", "a|  \n", "|b\n", "ok fine\nalone\n"}) {
    test::WriteFile("list", line);
    EXPECT_EQ(Fails("-c -T list"), 43) << line;
    EXPECT_EQ(m_message, "TOLVEN: wrong format in file list (error 43). ");
  }
}

TEST_F(NameListsTest, UnreadableFiles) {
  std::filesystem::create_directory("dir");
  for (const std::string option : {"-A", "-X", "-T"}) {
    EXPECT_EQ(Fails("-c name " + option + " missing"), 6);
    EXPECT_EQ(m_message, "TOLVEN: error opening missing (error 6). No such file or directory");
    EXPECT_EQ(Fails("-c name " + option + " dir"), 5);
    EXPECT_EQ(m_message, "TOLVEN: error reading from dir (error 5). ");
  }
}

TEST_F(NameListsTest, HostileFiles) {
  test::WriteFile("list", std::string("a\0b\n\0\nc", 7));
  Prepare("-c -A list");
  EXPECT_EQ(m_line.GetNames(), (Names{"a", "c"}));
  // A line far beyond any buffer, and one that ends exactly with a read.
  test::WriteFile("list", std::string(100000, 'x') + "\n" + std::string(8192 - 100001 % 4096, 'y'));
  Prepare("-c -A list");
  EXPECT_EQ(m_line.GetNames().size(), 2U);
  EXPECT_EQ(m_line.GetNames()[0].size(), 100000U);
}

}  // namespace
}  // namespace tolven

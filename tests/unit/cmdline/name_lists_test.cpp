#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "cmdline/cmd_line.h"
#include "cmdline/usage_checker.h"
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

  std::unique_ptr<test::Args> m_args;
  CCmdLine m_line;
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

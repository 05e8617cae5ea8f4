#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>

#include "cmdline/cmd_line.h"
#include "cmdline/usage_checker.h"
#include "report/except.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "support/args.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using test::Args;

// The options of `text`, with the flags that differ from the default as letters in the order of CmdOptions.
std::string ChangedFlags(const CmdOptions& o) {
  const CmdOptions d;
  const std::pair<bool CmdOptions::*, char> flags[] = {
      {&CmdOptions::verbose, 'v'},
      {&CmdOptions::spaceCheck, 's'},
      {&CmdOptions::absolutePaths, 'P'},
      {&CmdOptions::separateVerify, '1'},
      {&CmdOptions::ignoreInaccessible, 'i'},
      {&CmdOptions::resolveLinks, 'r'},
      {&CmdOptions::printStatistics, 'n'},
      {&CmdOptions::changeDirPermissions, 'h'},
      {&CmdOptions::forceExtraction, 'j'},
      {&CmdOptions::ignoreCase, 'g'},
      {&CmdOptions::redirectOutput, 'e'},
      {&CmdOptions::lowerCase, 'l'},
      {&CmdOptions::flat, 'F'},
      {&CmdOptions::addPrivileges, '!'},
      {&CmdOptions::sign, 'S'},
      {&CmdOptions::verifySignature, 'V'},
      {&CmdOptions::noPathValidation, 'x'},
  };
  std::string changed;
  for (const auto& [member, letter] : flags) {
    if (o.*member != d.*member) changed += letter;
  }
  return changed;
}

TEST(Options, CommandsAndFlags) {
  struct Case {
    std::string args;
    int command;
    std::string flags;
  };
  const Case cases[] = {
      {"", CMD_NONE, ""},
      {"-c", CMD_CREATE, ""},
      {"-d", CMD_TEST, ""},
      {"-x", CMD_EXTRACT, ""},
      {"-t", CMD_LIST, ""},
      {"-a", CMD_APPEND, ""},
      {"-m", CMD_MERGE, ""},
      {"-l", CMD_SCAN, ""},
      {"-S", CMD_SIGN, "S"},
      {"-M", CMD_VERIFY_MANIFEST, "V"},
      {"-tM", CMD_LIST, "V"},
      {"-Mt", CMD_LIST, "V"},
      {"-xc", CMD_CREATE, ""},
      {"-c -x", CMD_EXTRACT, ""},
      {"-cS", CMD_CREATE, "SV"},
      {"-xS", CMD_EXTRACT, "SV"},
      {"-aS", CMD_APPEND, "SV"},
      {"-tS", CMD_LIST, "S"},
      {"-Sc", CMD_CREATE, "S"},
      {"-VS", CMD_SIGN, "S"},
      {"-SV", CMD_SIGN, "SV"},
      {"-cV", CMD_CREATE, "V"},
      {"-c -V", CMD_CREATE, "1V"},
      {"-SS", CMD_SIGN, "S"},
      {"-MS", CMD_VERIFY_MANIFEST, "SV"},
      {"-", CMD_NONE, ""},
      {"-tghijnrsv", CMD_LIST, "vsirnhjg"},
      {"-v -e -g -h -n -P", CMD_NONE, "vPnhge"},
      {"-j", CMD_NONE, "hj"},
      {"-lower -flat -xnopvalid", CMD_NONE, "lFx"},
      {"-vc", CMD_CREATE, "v"},
  };
  for (const Case& test : cases) {
    Args args(test.args);
    CCmdLine line;
    line.SetOptions(args.Count(), args.Vector());
    EXPECT_EQ(line.Options().command, test.command) << test.args;
    EXPECT_EQ(ChangedFlags(line.Options()), test.flags) << test.args;
  }
}

TEST(Options, Texts) {
  const std::pair<std::string, const char * CmdOptions::*> options[] = {
      {"X", &CmdOptions::excludeFile},
      {"T", &CmdOptions::renameFile},
      {"C", &CmdOptions::sourceDir},
      {"f", &CmdOptions::archiveText},
      {"A", &CmdOptions::includeFile},
      {"R", &CmdOptions::targetDir},
      {"H", &CmdOptions::hashAlgorithm},
      {"key", &CmdOptions::key},
      {"L", &CmdOptions::securityLibrary},
      {"pwd", &CmdOptions::password},
      {"y", &CmdOptions::signatureHashAlgorithm},
      {"manifest", &CmdOptions::manifestFile},
      {"crl", &CmdOptions::crlFile},
      {"F", &CmdOptions::fText},
      {"tsaurl", &CmdOptions::tsaUrl},
      {"proxy", &CmdOptions::proxyUrl},
  };
  for (const auto& [name, member] : options) {
    SCOPED_TRACE(name);
    Args args("-" + name + " value name");
    CCmdLine line;
    line.SetOptions(args.Count(), args.Vector());
    ASSERT_NE(line.Options().*member, nullptr);
    EXPECT_STREQ(line.Options().*member, "value");
    EXPECT_EQ(line.GetNames(), std::vector<std::string>{"name"});

    struct Failure {
      std::string args;
      std::string message;
      int number;
    };
    const std::string once = "TOLVEN: " + name + ": use option only once (error 18). ";
    const std::string missing = "TOLVEN: " + name + "-option specified without filename (error 19). ";
    const Failure failures[] = {
        {"-" + name + " a -" + name + " b", once, 18},
        {"-" + name + " a -" + name, once, 18},
        {"-" + name, missing, 19},
        {"-" + name + " -x", missing, 19},
    };
    for (const Failure& failure : failures) {
      Args wrong(failure.args);
      CCmdLine other;
      errno = ENOENT;  // stale: must not reach the message
      try {
        other.SetOptions(wrong.Count(), wrong.Vector());
        ADD_FAILURE() << failure.args;
      } catch (const CExcept& except) {
        EXPECT_EQ(except.GetMsg(), failure.message);
        EXPECT_EQ(except.GetNumber(), failure.number);
      }
    }
  }
}

TEST(Options, PasswordDisappearsFromTheArguments) {
  Args args("-S -pwd secret -f A.VRA");
  CCmdLine line;
  line.SetOptions(args.Count(), args.Vector());
  EXPECT_STREQ(line.Options().password, "secret");
  EXPECT_EQ(args.Text(3), "******");
  EXPECT_STREQ(line.Options().archiveText, "A.VRA");
}

TEST(Options, Permission) {
  struct Case {
    std::string args;
    std::uint32_t value;
    bool given;
  };
  const Case cases[] = {
      {"-p 644", 0644, true}, {"-p _644x", 0644, true}, {"-p 0", 0, true},
      {"-p", 0, false},       {"-p 7777", 07777, true}, {"-p 100644", 0100644, true},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.args);
    Args args(test.args);
    CCmdLine line;
    line.SetOptions(args.Count(), args.Vector());
    EXPECT_EQ(line.Options().permission, test.value);
    EXPECT_EQ(line.Options().permissionText != nullptr, test.given);
  }
}

struct MessageCase {
  std::string args;
  std::string message;
  int number;
};

class MessagesTest : public test::TempDirTest {
 protected:
  // Parses and checks, as a run does.
  static void Expect(const MessageCase& test) {
    SCOPED_TRACE(test.args);
    RunStatus status;
    RunStatusScope scope(status);
    Args args(test.args);
    CCmdLine line;
    errno = 0;
    try {
      line.SetOptions(args.Count(), args.Vector());
      errno = ENOENT;
      CUsageChecker(line).Check();
      EXPECT_EQ(test.message, "");
    } catch (const CExcept& except) {
      EXPECT_EQ(except.GetMsg(), test.message + " (error " + std::to_string(test.number) + "). ");
    }
    EXPECT_EQ(status.exitCode, test.number);
  }
};

TEST_F(MessagesTest, ParseErrors) {
  const MessageCase cases[] = {
      {"-cqv", "TOLVEN: unknown command option qv", 20},
      {"-lowers", "TOLVEN: unknown command option owers", 20},
      {"-cvf", "TOLVEN: f-option specified without filename", 19},
      {"-cvf -x", "TOLVEN: f-option specified without filename", 19},
      {"-cf A -f B", "TOLVEN: f: use option only once", 18},
      {"-p 644 -p 644", "TOLVEN: use p-option only once", 18},
      {"-p 8", "TOLVEN: no octal value specified for p-option", 27},
      {"-p rw", "TOLVEN: no octal value specified for p-option", 27},
      {"-p -v", "TOLVEN: no octal value specified for p-option", 27},
  };
  for (const MessageCase& test : cases) Expect(test);
}

TEST_F(MessagesTest, Rules) {
  const MessageCase cases[] = {
      {"-c", "TOLVEN: no files given for archiving", 29},
      {"-c name", "", 0},
      {"-c -A list", "", 0},
      {"-c -T list", "", 0},
      {"-xf none*", "TOLVEN: no archives specified for extracting", 29},
      {"-xf ,", "TOLVEN: no archives specified for extracting", 29},
      {"-Sf none*", "TOLVEN: no archives specified for extracting", 29},
      {"-tf none*", "", 0},
      {"-a -T list", "TOLVEN: no files specified for appending", 29},
      {"-l", "TOLVEN: no files specified for scanning", 29},
      {"-S name", "TOLVEN: additionally files are not allowed for signing an archive", 20},
      {"-S -A list", "TOLVEN: additionally files are not allowed for signing an archive", 20},
      {"-S", "", 0},
      {"-M", "", 0},
      {"-Mf none*", "TOLVEN: no manifest specified", 20},
      {"-Mf none* -manifest m", "", 0},
      {"-m -V", "TOLVEN: no signatures supported for merging", 53},
      {"-mS", "TOLVEN: no signatures supported for merging", 53},
      {"-m", "", 0},
      {"-v name", "TOLVEN: please specify a command (one of -c, -x, -t, -d, -a, -m, -l, -S, -M)", 21},
      {"-fcv ARCHIVE", "TOLVEN: please specify a command (one of -c, -x, -t, -d, -a, -m, -l, -S, -M)", 21},
      {"-t -C d -P", "TOLVEN: don't use both P-option and C-option", 22},
      {"-t -C d", "TOLVEN: use C-option only with create (-c)", 23},
      {"-c n -C d", "", 0},
      {"-x -T t", "TOLVEN: use T-option only with create (-c) or append (-a)", 24},
      {"-a n -T t", "", 0},
      {"-x -X t", "TOLVEN: use X-option only with create (-c), append (-a) or scan (-l)", 25},
      {"-l n -X t", "", 0},
      {"-a n -X t", "", 0},
      {"-d -R t", "TOLVEN: use R-option only with extract (-x) or list content (-t)", 26},
      {"-t -R t", "", 0},
      {"-xs", "TOLVEN: use s-option only with list content (-t)", 31},
      {"-ts", "", 0},
      {"-t -lower", "TOLVEN: use -lower only with extract (-x)", 46},
      {"-x -lower", "", 0},
  };
  for (const MessageCase& test : cases) Expect(test);
}

TEST_F(MessagesTest, BackupIsAnnouncedAndIgnored) {
  CAPILogMan log;
  RunStatus status;
  status.logManager = &log;
  RunStatusScope scope(status);
  Args args("-backup -t");
  CCmdLine line;
  line.SetOptions(args.Count(), args.Vector());
  EXPECT_EQ(log.GetOutput(),
            "TOLVEN: option -backup not supported on non-Windows platforms (option ignored)\n");
  EXPECT_EQ(line.Options().command, CMD_LIST);
}

class ArchiveListTest : public test::TempDirTest {
 protected:
  ArchiveListTest() {
    for (const char* name : {"K1.vra", "K2.VRA", "k3.vra"}) test::WriteFile(name, "x");
    std::filesystem::create_directory("sub");
    test::WriteFile("sub/K1.vra", "x");
  }
};

TEST_F(ArchiveListTest, Texts) {
  using Names = std::vector<std::string>;
  struct Case {
    const char* text;
    bool ignoreCase;
    Names names;
  };
  const Case cases[] = {
      {nullptr, false, {"DEFAULT.VRA"}},
      {nullptr, true, {"DEFAULT.VRA"}},
      {"A.VRA", false, {"A.VRA"}},
      {"A.VRA B.VRA", false, {"A.VRA", "B.VRA"}},
      {" A.VRA\t\nB.VRA ", false, {"A.VRA", "B.VRA"}},
      {"A.VRA,B.VRA", false, {"A.VRA", "B.VRA"}},
      {"A.VRA, B.VRA", false, {"A.VRA", "B.VRA"}},
      {"X Y.VRA, Z.VRA", false, {"X Y.VRA", "Z.VRA"}},
      {"X Y.VRA,", false, {"X Y.VRA"}},
      {"X ,, Y", false, {"X ", "Y"}},
      {", A", false, {"A"}},
      {"", false, {}},
      {" , ,", false, {}},
      {"K*.vra", false, {"K1.vra"}},
      {"K*.vra", true, {"K1.vra", "K2.VRA", "k3.vra"}},
      {"k1.vra", true, {"K1.vra"}},
      {"A.VRA sub/K?.vra k3.vra", false, {"A.VRA", "sub/K1.vra", "k3.vra"}},
      {"s*b/K1.vra", false, {"s*b/K1.vra"}},
      {"none*", false, {}},
  };
  for (const Case& test : cases) {
    CCmdLine line;
    line.MutableOptions().archiveText = test.text;
    line.MutableOptions().ignoreCase = test.ignoreCase;
    Names names = line.GetArchsToProcess();
    if (test.ignoreCase) std::sort(names.begin(), names.end());  // the system's own order
    EXPECT_EQ(names, test.names) << (test.text == nullptr ? "no -f" : test.text);
  }
}

TEST_F(ArchiveListTest, ParsedOnceUntilReset) {
  CCmdLine line;
  line.MutableOptions().archiveText = "A";
  EXPECT_EQ(line.GetArchsToProcess().size(), 1U);
  line.MutableOptions().archiveText = "A B";
  EXPECT_EQ(line.GetArchsToProcess().size(), 1U);
  line.Reset();
  EXPECT_EQ(line.Options().archiveText, nullptr);
  line.MutableOptions().archiveText = "A B";
  EXPECT_EQ(line.GetArchsToProcess().size(), 2U);
}

}  // namespace
}  // namespace tolven

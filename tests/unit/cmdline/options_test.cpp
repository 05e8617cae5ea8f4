#include <gtest/gtest.h>

#include <string>

#include "cmdline/cmd_line.h"
#include "support/args.h"

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
      {&CmdOptions::verifyAsked, '!'},
      {&CmdOptions::ignoreInaccessible, 'i'},
      {&CmdOptions::resolveLinks, 'r'},
      {&CmdOptions::printStatistics, 'n'},
      {&CmdOptions::changeDirPermissions, 'h'},
      {&CmdOptions::forceExtraction, 'j'},
      {&CmdOptions::ignoreCase, 'g'},
      {&CmdOptions::redirectOutput, 'e'},
      {&CmdOptions::lowerCase, 'l'},
      {&CmdOptions::flat, 'F'},
      {&CmdOptions::addPrivileges, '+'},
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
      {"-M", CMD_VERIFY_MANIFEST, "!V"},
      {"-tM", CMD_LIST, "!V"},
      {"-Mt", CMD_LIST, "!V"},
      {"-xc", CMD_CREATE, ""},
      {"-c -x", CMD_EXTRACT, ""},
      {"-cS", CMD_CREATE, "SV"},
      {"-xS", CMD_EXTRACT, "SV"},
      {"-aS", CMD_APPEND, "SV"},
      {"-tS", CMD_LIST, "S"},
      {"-Sc", CMD_CREATE, "S"},
      {"-VS", CMD_SIGN, "!S"},
      {"-SV", CMD_SIGN, "!SV"},
      {"-cV", CMD_CREATE, "!V"},
      {"-c -V", CMD_CREATE, "!V"},
      {"-SS", CMD_SIGN, "S"},
      {"-MS", CMD_VERIFY_MANIFEST, "!SV"},
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

}  // namespace
}  // namespace tolven

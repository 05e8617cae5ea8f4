// The commands over whole archives on disk: what a user sees, and what is left behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "oldarchive/extract_old.h"
#include "oldarchive/type_old.h"
#include "report/except.h"
#include "support/old_archive_writer.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using test::OldArchive;
using test::OldDirectory;
using test::OldEntry;
using test::OldFile;
using test::ReadFile;
using test::WriteFile;

// Hands each archive of the list straight to the reader of the older format.
class OldOnly : public ICommandFactory {
 public:
  std::unique_ptr<CCommand> MakeCommand(int code, CProcessor& processor) const override {
    const std::string archive = processor.CmdLine().GetArchsToProcess().at(0);
    if (code == CMD_LIST) return std::make_unique<CTypeOld>(processor, archive);
    return std::make_unique<CExtractOld>(processor, archive);
  }
};

struct Outcome {
  int code;
  std::string output;
};

Outcome Tolven(std::vector<std::string> arguments) {
  CProcessor::Destroy();
  CProcessor& processor = *CProcessor::GetTheProcessor();
  auto log = std::make_unique<CAPILogMan>();
  const CAPILogMan& output = *log;
  processor.SetLogManager(std::move(log));
  const OldOnly factory;
  processor.SetCommandFactory(factory);

  arguments.insert(arguments.begin(), "TOLVEN");
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  Outcome outcome;
  try {
    processor.CmdLine().SetOptions(static_cast<int>(argv.size()), argv.data());
    processor.Run();
  } catch (const CExcept& e) {
    processor.LogManager().PrintInfo(e);
  }
  outcome = {processor.ExitCode(), output.GetOutput()};
  CProcessor::Destroy();
  return outcome;
}

// Every path below the current directory but the archives, sorted.
std::vector<std::string> Tree() {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(".")) {
    const std::string path = entry.path().lexically_normal().string();
    if (!path.ends_with(".orv")) paths.push_back(path);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}
using Paths = std::vector<std::string>;

struct stat Status(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

std::string Noise(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

std::string Text(std::size_t lines) {
  std::string text;
  for (std::size_t i = 0; i < lines; ++i) text += "line " + std::to_string(i * i) + " of a text\n";
  return text;
}

class OldCommands : public test::TempDirTest {
 protected:
  OldCommands() { setenv("TZ", "UTC", 1); }
};

TEST_F(OldCommands, EveryTenthByteInverted) {
  const std::string text = Text(2000);
  const auto inverted = [](OldEntry entry) {
    entry.stream = test::InvertEveryTenth(entry.stream);
    return entry;
  };
  WriteFile("a.orv", OldArchive({OldFile("empty", ""), inverted(OldFile("a", text)),
                                 inverted(OldFile("b", "short"))}));
  EXPECT_EQ(Tolven({"-df", "a.orv"}).output, "TOLVEN: 3 file(s) tested\n");
  // The switch is the archive's: the entry that decides need not be selected.
  EXPECT_EQ(Tolven({"-xf", "a.orv", "b"}).output, "TOLVEN: 1 file(s) extracted\n");
  EXPECT_EQ(ReadFile("b"), "short");

  // Decided once: a stream of the other kind later on does not decode.
  WriteFile("b.orv", OldArchive({OldFile("plain", text), inverted(OldFile("a", text))}));
  EXPECT_EQ(Tolven({"-df", "b.orv"}).code, 13);
}

TEST_F(OldCommands, DirectoryModesOfWhatWasThere) {
  WriteFile("a.orv", OldArchive({OldDirectory("there", 0700), OldDirectory("new", 0700)}));
  mkdir("there", 0755);
  chmod("there", 0755);
  EXPECT_EQ(Tolven({"-xhf", "a.orv"}).code, 0);
  EXPECT_EQ(Status("there").st_mode & 07777, 0755U);
  EXPECT_EQ(Status("new").st_mode & 07777, 0700U);
  EXPECT_EQ(Tolven({"-xf", "a.orv"}).code, 0);
  EXPECT_EQ(Status("there").st_mode & 07777, 0700U);
  EXPECT_EQ(Status("there").st_mtime, 900000000);
}

TEST_F(OldCommands, AFailureStillFinishesTheDirectories) {
  OldEntry broken = OldFile("d/broken", "some content");
  broken.stream[5] = 'x';
  WriteFile("a.orv", OldArchive({OldDirectory("d", 0710, 900000001), OldFile("d/a", "first"), broken,
                                 OldFile("d/never", "last")}));
  const Outcome outcome = Tolven({"-xf", "a.orv"});
  EXPECT_EQ(outcome.code, 13);
  EXPECT_EQ(Tree(), (Paths{"d", "d/a"}));
  EXPECT_EQ(Status("d").st_mode & 07777, 0710U);
  EXPECT_EQ(Status("d").st_mtime, 900000001);
}

struct Hostile {
  const char* what;
  std::string archive;
  int code;
  std::string message;  // behind "TOLVEN: "
};

std::string Renamed(const OldEntry& entry, std::uint64_t compressed, std::uint64_t size) {
  return OldArchive({{test::OldLine('F', "a", 0644, compressed, size, 7, 0), entry.stream}});
}

std::vector<Hostile> HostileArchives() {
  const std::string text = Text(100);
  const OldEntry good = OldFile("a", text);
  const std::size_t length = good.stream.size();
  const auto changed = [&](std::size_t at, char value) {
    std::string stream = good.stream;
    stream[at] = value;
    return OldArchive({test::OldStream("a", text, stream)});
  };
  const auto declaring = [&](std::uint32_t size) {
    return OldArchive({{good.line, test::StreamHeader(size, 0x12, 2) + good.stream.substr(8)}});
  };
  const std::string cut =
      "Archive seems to be corrupt (more bytes requested for decompress than are left in the archive); "
      "archive is x.orv (error 37). ";
  const std::string undecodable = "can't decompress a (error 13). ";
  const std::string large = "file is larger than 2 GB a (error 36). ";
  const std::string format = "format error in header x.orv (error 12). ";
  return {
      {"empty file", "", 12, format},
      {"binary", Noise(20000), 12, format},
      {"text", "just a text\n", 12, format},
      {"comments alone", "# a\n# b\n", 12, format},
      {"cut header", OldArchive({good}).substr(0, 60), 12, format},
      {"time", "F a 644 0 0 99999999999999999999\n#\n", 100, "timestamp conversion failed! (error 100). "},
      {"more than the file", Renamed(good, length + 1, text.size()), 37, cut},
      {"far more than the file", Renamed(good, 9999999999U, text.size()), 37, cut},
      {"cut data", OldArchive({good}).substr(0, OldArchive({good}).size() - 1), 37, cut},
      {"stream cut, file not", Renamed(good, length - 9, text.size()), 13, undecodable},
      {"stream header alone", Renamed(good, 8, text.size()), 13, undecodable},
      {"magic", changed(5, 'x'), 13, undecodable},
      {"algorithm", changed(4, 0x13), 13, undecodable},
      {"declares more than it holds", declaring(static_cast<std::uint32_t>(text.size() + 1)), 13,
       undecodable},
      {"holds more than it declares", declaring(static_cast<std::uint32_t>(text.size() - 1)), 13,
       undecodable},
      {"declares over 2 GB", declaring(0x80000000U), 36, large},
      {"line over 2 GB", Renamed(good, length, 2147483648U), 36, large},
      {"checksum", OldArchive({{test::OldLine('F', "a", 0644, length, text.size(), 7, 1), good.stream}}), 14,
       "checksum error a (error 14). "},
      {"no name", OldArchive({OldFile("../..", text)}), 3, "can't create filename for ../.. (error 3). "},
  };
}

TEST_F(OldCommands, HostileArchivesLeaveNothing) {
  for (const Hostile& hostile : HostileArchives()) {
    WriteFile("x.orv", hostile.archive);
    const bool testOnly = hostile.code == 14;
    const Outcome outcome = Tolven({testOnly ? "-df" : "-xf", "x.orv"});
    EXPECT_EQ(outcome.code, hostile.code) << hostile.what;
    const std::string start = hostile.code == 12 || hostile.code == 100 ? ""
                              : testOnly ? "TOLVEN: not all files could be tested\n"
                                         : "TOLVEN: not all files could be extracted\n";
    EXPECT_EQ(outcome.output, start + "TOLVEN: " + hostile.message + "\n") << hostile.what;
    EXPECT_EQ(Tree(), Paths{}) << hostile.what;
  }
}

// Whatever is cut off or flipped: an error, or what was packed. Never a crash, a hang or a file half written.
TEST_F(OldCommands, DamageNeverPassesATest) {
  const std::string text = Text(5);
  const std::string archive =
      OldArchive({OldFile("a", text), OldFile("b", text)});
  for (std::size_t length = 0; length < archive.size(); ++length) {
    WriteFile("x.orv", archive.substr(0, length));
    EXPECT_NE(Tolven({"-df", "x.orv"}).code, 0) << length;
  }
  for (std::size_t at = 0; at < archive.size(); ++at) {
    std::string flipped = archive;
    flipped[at] = static_cast<char>(flipped[at] ^ 0x04);
    WriteFile("x.orv", flipped);
    if (Tolven({"-xf", "x.orv", "-R", "."}).code == 0 && Tolven({"-df", "x.orv"}).code == 0) {
      for (const std::string& path : Tree()) EXPECT_EQ(ReadFile(path), text) << at;
    }
    for (const std::string& path : Tree()) unlink(path.c_str());
  }
}

class OldPathSafety : public OldCommands {};

TEST_F(OldPathSafety, NamesThatClimbStayBelow) {
  mkdir("in", 0755);
  WriteFile("x.orv", OldArchive({OldFile("../up", "1"), OldFile("/abs", "2"), OldFile("a/../../b", "3"),
                                 OldDirectory("../../d"), OldFile("C:/drive", "4")}));
  EXPECT_EQ(Tolven({"-xf", "x.orv", "-R", "in"}).code, 0);
  EXPECT_EQ(Tree(), (Paths{"in", "in/abs", "in/b", "in/d", "in/drive", "in/up"}));

  EXPECT_EQ(Tolven({"-xf", "x.orv", "-R", "in", "-xnopvalid", "*up"}).code, 0);
  EXPECT_EQ(ReadFile("up"), "1") << "the user asked for it";
}

TEST_F(OldPathSafety, LinksOnTheWay) {
  mkdir("outside", 0755);
  mkdir("in", 0755);
  mkdir("in/real", 0755);
  ASSERT_EQ(symlink("../outside", "in/escape"), 0);
  ASSERT_EQ(symlink("real", "in/inner"), 0);

  WriteFile("x.orv", OldArchive({OldFile("escape/x", "1")}));
  const Outcome escaped = Tolven({"-xf", "x.orv", "-R", "in"});
  EXPECT_EQ(escaped.code, 1);
  EXPECT_NE(escaped.output.find("can't create directory escape: "), std::string::npos) << escaped.output;
  EXPECT_TRUE(std::filesystem::is_empty("outside"));

  WriteFile("x.orv", OldArchive({OldDirectory("escape")}));
  EXPECT_EQ(Tolven({"-xf", "x.orv", "-R", "in"}).code, 1);

  WriteFile("x.orv", OldArchive({OldFile("inner/x", "1")}));
  EXPECT_EQ(Tolven({"-xf", "x.orv", "-R", "in"}).code, 0) << "a link that stays below is the user's business";
  EXPECT_EQ(ReadFile("in/real/x"), "1");
}

TEST_F(OldPathSafety, WhatStandsInTheWay) {
  WriteFile("victim", "keep");
  ASSERT_EQ(symlink("victim", "link"), 0);
  WriteFile("x.orv", OldArchive({OldFile("link", "new")}));
  EXPECT_EQ(Tolven({"-xf", "x.orv"}).code, 0);
  EXPECT_EQ(ReadFile("victim"), "keep") << "a link is replaced, not written through";
  EXPECT_EQ(ReadFile("link"), "new");

  // A failing entry leaves the file that stood there as it was.
  OldEntry broken = OldFile("victim", "something else that is long enough");
  broken.stream[5] = 'x';
  WriteFile("x.orv", OldArchive({broken}));
  EXPECT_EQ(Tolven({"-xf", "x.orv"}).code, 13);
  EXPECT_EQ(ReadFile("victim"), "keep");

  mkdir("dir", 0755);
  WriteFile("x.orv", OldArchive({OldFile("dir", "new")}));
  EXPECT_EQ(Tolven({"-xf", "x.orv"}).code, 29);
  WriteFile("x.orv", OldArchive({OldFile("victim/below", "new")}));
  EXPECT_EQ(Tolven({"-xf", "x.orv"}).code, 1);
  WriteFile("x.orv", OldArchive({OldFile(std::string(300, 'n') + "/x", "new")}));
  EXPECT_EQ(Tolven({"-xf", "x.orv"}).code, 2);
  EXPECT_EQ(Tree(), (Paths{"dir", "link", "victim"}));
}

}  // namespace
}  // namespace tolven

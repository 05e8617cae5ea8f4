#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "archive/extract_target.h"
#include "archive_bytes.h"
#include "report/except.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

std::string Listing(const fs::path& root) {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    std::string name = entry.path().lexically_relative(root).string();
    if (entry.is_symlink()) name += "->" + fs::read_symlink(entry.path()).string();
    names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) text += name + " ";
  return text;
}

void PutFile(CExtractTarget& target, const std::string& path, std::string content, bool verified = false) {
  auto pending = target.OpenFile(path, path);
  unsigned long done = 0;
  ASSERT_TRUE(pending->Stream().Write(reinterpret_cast<unsigned char*>(content.data()), content.size(), &done));
  target.CommitFile(*pending, 0104640, 1000, path, verified);
}

TEST(ExtractTarget, AFileHasItsNameOnlyWhenItIsWhole) {
  test::Run run;
  CExtractTarget::VerifiedFiles none;
  CExtractTarget target(run.Options(), none);
  PutFile(target, "d/f", "old");
  {
    auto pending = target.OpenFile("d/f", "d/f");
    EXPECT_TRUE(pending->TempName().starts_with("d/f"));
    EXPECT_EQ(pending->TempName().size(), 9U);
  }  // given up
  EXPECT_EQ(Listing("."), "d d/f ");
  struct stat status {};
  ASSERT_EQ(stat("d/f", &status), 0);
  EXPECT_EQ(status.st_mode, 0104640U);
  EXPECT_EQ(status.st_mtime, 1000);
  EXPECT_EQ(status.st_size, 3);
}

TEST(ExtractTarget, LinksComeAfterFilesAndTheLastEntryOfAPathWins) {
  test::Run run;
  fs::create_directory("outside");
  fs::create_directory("in");
  ASSERT_EQ(chdir("in"), 0);
  CExtractTarget::VerifiedFiles none;
  CExtractTarget target(run.Options(), none);
  target.AddLink("way", "../outside", "way");
  PutFile(target, "way/f", "must stay inside");
  target.AddLink("twice", "t", "twice");
  PutFile(target, "twice", "file");
  PutFile(target, "last", "file");
  target.AddLink("last", "t", "last");
  target.Finish();
  EXPECT_EQ(target.FailedLinks(), 1U) << "a directory stands where the first link was to go";
  EXPECT_EQ(run.ExitCode(), 36);
  EXPECT_EQ(run.Output(), "TOLVEN: could not create symbolic link (error 36). way\n");
  EXPECT_EQ(Listing("."), "last->t twice way way/f ");
  EXPECT_EQ(Listing("../outside"), "");
}

TEST(ExtractTarget, NoLinkTakesThePlaceOfAVerifiedFile) {
  test::Run run;
  std::ofstream("before") << "x";
  CExtractTarget::VerifiedFiles verified;
  CExtractTarget first(run.Options(), verified);
  PutFile(first, "signed", "x", true);
  PutFile(first, "plain", "x");
  first.Finish();
  CExtractTarget second(run.Options(), verified);
  for (const char* name : {"before", "signed", "plain"}) second.AddLink(name, "elsewhere", name);
  second.Finish();
  second.AddLink("more", "t", "more");
  second.DropLinks();
  second.Finish();
  EXPECT_EQ(Listing("."), "before->elsewhere plain->elsewhere signed ");
  EXPECT_EQ(second.FailedLinks(), 1U);
  EXPECT_EQ(run.ExitCode(), 36);
}

TEST(ExtractTarget, LinksOfThisRunAreNeverFollowed) {
  test::Run run;
  CExtractTarget::VerifiedFiles none;
  CExtractTarget target(run.Options(), none);
  target.AddDirectory("real", "real", 040755, 5);
  target.AddLink("way", "real", "way");
  target.Finish();
  EXPECT_THROW(PutFile(target, "way/f", "x"), CCreateDirExcept);
  EXPECT_EQ(Listing("."), "real way->real ");
}

}  // namespace
}  // namespace tolven

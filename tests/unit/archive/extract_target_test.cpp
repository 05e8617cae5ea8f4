#include "archive/extract_target.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

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

void PutFile(CExtractTarget& target, const std::string& path, std::string content,
             std::uint32_t mode = 0104640) {
  auto pending = target.OpenFile(path, path);
  unsigned long done = 0;
  ASSERT_TRUE(
      pending->Stream().Write(reinterpret_cast<unsigned char*>(content.data()), content.size(), &done));
  target.CommitFile(*pending, mode, 1000, path);
}

TEST(ExtractTarget, AFileHasItsNameOnlyWhenItIsWhole) {
  test::Run run;
  CExtractTarget target(run.Options(), false);
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
  CExtractTarget target(run.Options(), false);
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

TEST(ExtractTarget, WhatIsNotSignedGetsNoPower) {
  test::Run run;
  const mode_t mask = umask(027);
  std::ofstream("before") << "x";
  fs::create_symlink("long", "other");
  fs::create_symlink("long", "same");
  CExtractTarget target(run.Options(), true);
  target.AddDirectory("d", "d", 047777, 5);
  PutFile(target, "signed", "x", 0107777);
  for (const char* name : {"before", "signed", "new"}) target.AddLink(name, "elsewhere", name);
  target.AddLink("other", "lon", "other");
  target.AddLink("same", "long", "same");
  target.Finish();
  target.AddLink("more", "t", "more");
  target.DropLinks();
  target.Finish();
  EXPECT_EQ(umask(mask), 027U);
  EXPECT_EQ(Listing("."), "before d new->elsewhere other->long same->long signed ");
  EXPECT_EQ(target.FailedLinks(), 3U);
  EXPECT_EQ(run.ExitCode(), 36);
  struct stat status {};
  ASSERT_EQ(stat("signed", &status), 0);
  EXPECT_EQ(status.st_mode, 0100750U);
  ASSERT_EQ(stat("d", &status), 0);
  EXPECT_EQ(status.st_mode, 040750U);
}

TEST(ExtractTarget, LinksOfThisRunAreNeverFollowed) {
  test::Run run;
  CExtractTarget target(run.Options(), false);
  target.AddDirectory("real", "real", 040755, 5);
  target.AddLink("way", "real", "way");
  target.Finish();
  EXPECT_THROW(PutFile(target, "way/f", "x"), CCreateDirExcept);
  EXPECT_EQ(Listing("."), "real way->real ");
}

}  // namespace
}  // namespace tolven

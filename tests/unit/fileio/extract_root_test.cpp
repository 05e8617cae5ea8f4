#include "fileio/extract_root.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>

#include "support/temp_dir.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

// "root" is the extraction directory and the current one; "outside" lies beside it and must stay empty.
// Every test runs with the kernel's confined lookup and with the walk in user space.
class ExtractRootTest : public ::testing::TestWithParam<bool> {
 protected:
  ExtractRootTest() {
    CExtractRoot::BeginRun();
    fs::create_directories("outside");
    fs::create_directories("root/real/deep");
    fs::current_path("root");
    m_root = std::make_unique<CExtractRoot>(true, GetParam());
    EXPECT_TRUE(m_root->IsOpen());
  }
  ~ExtractRootTest() override {
    EXPECT_TRUE(fs::is_empty(m_dir / "outside")) << "something left the extraction directory";
  }

  // What an extraction does for one file; the error number, 0 when the file stands there.
  int Extract(const std::string& path, const std::string& content = "x") {
    return Extract(*m_root, path, content);
  }
  static int Extract(CExtractRoot& root, const std::string& path, const std::string& content) {
    std::string failed;
    std::string temp;
    if (!root.MakeParents(path, failed)) return errno;
    const UniqueFd fd = root.CreateTemp(path, temp);
    if (!fd) return errno;
    EXPECT_EQ(write(fd.Get(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
    if (root.Rename(temp, path)) return 0;
    const int error = errno;
    EXPECT_TRUE(root.Remove(temp));
    return error;
  }
  int Directory(const std::string& path) {
    bool created = false;
    std::string failed;
    return m_root->MakeDirectory(path, created, failed) ? 0 : errno;
  }

  test::TempDir m_dir;
  std::unique_ptr<CExtractRoot> m_root;
};

INSTANTIATE_TEST_SUITE_P(Resolvers, ExtractRootTest, ::testing::Bool(),
                         [](const auto& test) { return test.param ? "Kernel" : "Walk"; });

TEST_P(ExtractRootTest, MakesParentsAndFiles) {
  EXPECT_EQ(Extract("file"), 0);
  EXPECT_EQ(Extract("a/b/c/file", "one"), 0);
  EXPECT_EQ(Extract("a/b/c/file", "two"), 0) << "an existing file is replaced";
  EXPECT_EQ(Extract("a/b/c/second"), 0);
  EXPECT_EQ(test::ReadFile("a/b/c/file"), "two");
  struct stat status;
  ASSERT_TRUE(m_root->Status("a/b", status));
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_mode & 0700, 0700U);
  EXPECT_FALSE(m_root->Status("a/missing", status));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(std::distance(fs::directory_iterator("a/b/c"), {}), 2) << "no temporary file is left";
}

// Links that were there before the run, the path of an entry, and the error (0: extracted to `lands`).
TEST_P(ExtractRootTest, LinksFromBeforeTheRun) {
  struct Case {
    std::string target;  // of the link "link"
    std::string path;
    int error;
    std::string lands;
  };
  const Case cases[] = {
      {"real", "link/f", 0, "real/f"},
      {"real/deep", "link/f", 0, "real/deep/f"},
      {"./real//deep/", "link/new/f", 0, "real/deep/new/f"},
      {"real/../real/deep/..", "link/f", 0, "real/f"},
      {"real/inner", "link/f", 0, "real/deep/f"},
      {"real/up", "link/f", 0, "f"},
      {"../root/real", "link/f", EXDEV, ""},
      {"../outside", "link/f", EXDEV, ""},
      {"../outside", "link/new/f", EXDEV, ""},
      {"..", "link/outside/f", EXDEV, ""},
      {"real/../../outside", "link/f", EXDEV, ""},
      {m_dir / "outside", "link/f", EXDEV, ""},
      {m_dir / "root/real", "link/f", EXDEV, ""},
      {"/", "link/tmp/f", EXDEV, ""},
      {"nowhere", "link/f", ENOENT, ""},
      {"../outside/nowhere", "link/f", EXDEV, ""},
      {"link", "link/f", ELOOP, ""},
      {"real/file", "link/f", ENOTDIR, ""},
      {"real", "link/file/f", ENOTDIR, ""},
      {"real/out", "link/f", EXDEV, ""},
      {"real/out", "real/out/f", EXDEV, ""},
      {"real", "link/out/new/deep/f", EXDEV, ""},
  };
  test::WriteFile("real/file", "x");
  fs::create_symlink("../../outside", "real/out");
  fs::create_symlink("deep", "real/inner");
  fs::create_symlink("..", "real/up");
  for (const Case& test : cases) {
    SCOPED_TRACE(test.target + " <- " + test.path);
    fs::remove("link");
    fs::create_symlink(test.target, "link");
    m_root = std::make_unique<CExtractRoot>(true, GetParam());
    EXPECT_EQ(Extract(test.path), test.error);
    if (!test.lands.empty()) {
      EXPECT_TRUE(fs::is_regular_file(test.lands));
      EXPECT_EQ(Extract(test.path, "again"), 0);
      fs::remove(test.lands);
    }
  }
}

TEST_P(ExtractRootTest, PathsThatLeaveAreRefusedEvenUnvalidated) {
  const std::pair<std::string, int> cases[] = {
      {"../outside/f", EXDEV},
      {"/tmp/f", EXDEV},
      {"real/../../outside/f", EXDEV},
      {"..", EISDIR},
      {"real/..", EISDIR},
      {"", EISDIR},
      {".", EISDIR},
      {"new/../../outside/f", EXDEV},
  };
  for (const auto& [path, error] : cases) EXPECT_EQ(Extract(path), error) << path;
}

TEST_P(ExtractRootTest, LinksOfThisRunAreNeverFollowed) {
  ASSERT_TRUE(m_root->MakeLink("../outside", "bad"));
  ASSERT_TRUE(m_root->MakeLink("real", "good"));
  ASSERT_TRUE(m_root->MakeLink("deep", "real/inner"));
  fs::create_symlink("good", "old");
  for (const char* path : {"bad/f", "good/f", "good/new/f", "real/inner/f", "old/f"}) {
    EXPECT_EQ(Extract(path), ELOOP) << path;
  }
  // Nor by the next archive of the run.
  CExtractRoot next(true, GetParam());
  EXPECT_EQ(Extract(next, "good/f", "x"), ELOOP);
  EXPECT_EQ(Directory("good"), ELOOP);
  EXPECT_EQ(Directory("bad/new"), ELOOP);
  EXPECT_EQ(Extract("real/f"), 0);
  // The entry itself may replace the link.
  EXPECT_EQ(Extract("good"), 0);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status("good")));
  EXPECT_EQ(Extract("bad"), 0);
  EXPECT_EQ(fs::read_symlink("real/inner"), "deep");
}

TEST_P(ExtractRootTest, CachedParentFollowsWhatChanges) {
  fs::create_directory("other");
  fs::create_symlink("real", "link");
  EXPECT_EQ(Extract("link/f"), 0);
  // The link on the way to the cached parent becomes a link of this run, or a file.
  EXPECT_TRUE(m_root->Remove("link"));
  EXPECT_TRUE(m_root->MakeLink("other", "link"));
  EXPECT_EQ(Extract("link/g"), ELOOP);
  fs::create_symlink("real", "second");
  EXPECT_EQ(Extract("second/f"), 0);
  EXPECT_EQ(Extract("second"), 0);
  EXPECT_EQ(Extract("second/g"), ENOTDIR);
  // An indirect one: "third" leads over "hop".
  fs::create_symlink("real", "hop");
  fs::create_symlink("hop", "third");
  EXPECT_EQ(Extract("third/f"), 0);
  EXPECT_EQ(Extract("hop"), 0);
  EXPECT_EQ(Extract("third/g"), ENOTDIR);
  EXPECT_FALSE(fs::exists("real/g"));
}

TEST_P(ExtractRootTest, Directories) {
  bool created = false;
  std::string failed;
  EXPECT_TRUE(m_root->MakeDirectory("a/b", created, failed));
  EXPECT_TRUE(created);
  EXPECT_TRUE(m_root->MakeDirectory("a/b", created, failed));
  EXPECT_FALSE(created);
  EXPECT_TRUE(m_root->MakeDirectory("", created, failed)) << "the root itself";
  EXPECT_FALSE(created);
  fs::create_symlink("real", "link");
  EXPECT_TRUE(m_root->MakeDirectory("link", created, failed)) << "an old link to a directory below";
  EXPECT_FALSE(created);
  fs::create_symlink("../outside", "out");
  EXPECT_FALSE(m_root->MakeDirectory("out", created, failed));
  EXPECT_EQ(failed, "out");
  EXPECT_FALSE(m_root->MakeDirectory("out/new/deep", created, failed));
  EXPECT_EQ(failed, "out") << "the first directory that could not be entered";
  test::WriteFile("file", "x");
  EXPECT_FALSE(m_root->MakeDirectory("file", created, failed));
  EXPECT_EQ(failed, "file");
  EXPECT_FALSE(m_root->MakeParents("a/b/../../file/new/x", failed));
}

TEST_P(ExtractRootTest, Attributes) {
  constexpr std::int64_t kDate = 5L << 31;
  ASSERT_TRUE(m_root->SetDirectoryDate("real/deep", kDate));
  ASSERT_TRUE(m_root->SetDirectoryMode("real/deep", 0xF000 | 02751));
  struct stat status;
  ASSERT_EQ(stat("real/deep", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 02751U);
  EXPECT_EQ(status.st_mtime, kDate);
  // A link that took the directory's place is not followed, wherever it leads.
  for (const char* target : {"real", "../outside"}) {
    fs::remove("taken");
    fs::create_symlink(target, "taken");
    EXPECT_FALSE(m_root->SetDirectoryDate("taken", kDate));
    EXPECT_FALSE(m_root->SetDirectoryMode("taken", 0));
  }
  ASSERT_EQ(stat((m_dir / "outside").c_str(), &status), 0);
  EXPECT_NE(status.st_mtime, kDate);
  test::WriteFile("file", "x");
  EXPECT_FALSE(m_root->SetDirectoryMode("file", 0));
  EXPECT_FALSE(m_root->SetDirectoryMode("missing", 0));
}

TEST_P(ExtractRootTest, RenameAndRemoveTouchTheNameItself) {
  test::WriteFile("real/target", "old");
  fs::create_symlink("real/target", "link");
  EXPECT_EQ(Extract("link", "new"), 0);
  EXPECT_EQ(test::ReadFile("real/target"), "old");
  EXPECT_EQ(test::ReadFile("link"), "new");
  EXPECT_EQ(Extract("real"), EISDIR) << "a directory is not replaced";
  EXPECT_FALSE(m_root->Remove("real"));
  EXPECT_TRUE(fs::is_directory("real/deep"));
  fs::create_symlink("real/target", "second");
  EXPECT_TRUE(m_root->Remove("second"));
  EXPECT_TRUE(fs::exists("real/target"));
  EXPECT_FALSE(m_root->Rename("link", "real/link")) << "a temporary file lies beside its target";
  EXPECT_FALSE(m_root->MakeLink("x", "link")) << "something is there already";
  EXPECT_EQ(errno, EEXIST);
}

TEST_P(ExtractRootTest, TemporaryNames) {
  struct Case {
    std::string path;
    std::size_t nameLength;  // of the temporary file
  };
  const std::string umlauts = "\xC3\xA4";
  std::string wide;
  while (wide.size() < 250) wide += umlauts;
  const Case cases[] = {
      {"f", 7},
      {"real/" + std::string(249, 'n'), 255},
      {"real/" + std::string(255, 'n'), 255},
      {"real/" + wide, 248 + 6},
  };
  for (const Case& test : cases) {
    std::string temp;
    const UniqueFd fd = m_root->CreateTemp(test.path, temp);
    ASSERT_TRUE(fd);
    EXPECT_EQ(fs::path(temp).filename().string().size(), test.nameLength);
    EXPECT_EQ(fs::path(temp).parent_path(), fs::path(test.path).parent_path());
    struct stat status;
    ASSERT_EQ(stat(temp.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U & ~umask(umask(0)));
    EXPECT_TRUE(m_root->Rename(temp, test.path));
    EXPECT_TRUE(fs::is_regular_file(test.path));
  }
  std::string temp;
  EXPECT_FALSE(m_root->CreateTemp("missing/f", temp));
}

// Longer than any path that the system takes in one call.
TEST_P(ExtractRootTest, DeepPaths) {
  const std::string component(30, 'd');
  std::string path;
  while (path.size() < 4300) path += component + "/";
  EXPECT_EQ(Extract(path + "file"), 0);
  EXPECT_EQ(Extract(path + "second"), 0);
  struct stat status;
  EXPECT_TRUE(m_root->Status(path + "file", status));
  fs::create_symlink(component + "/" + component, "link");
  EXPECT_EQ(Extract("link/" + path + "third"), 0);
}

TEST_P(ExtractRootTest, UnconfinedResolvesLikeAnyProgram) {
  CExtractRoot root(false, GetParam());
  fs::create_directory(m_dir / "elsewhere");
  fs::create_symlink("../elsewhere", "link");
  EXPECT_EQ(Extract(root, "../elsewhere/new/a", "x"), 0);
  EXPECT_EQ(Extract(root, m_dir / "elsewhere/abs/b", "x"), 0);
  EXPECT_EQ(Extract(root, "link/c", "x"), 0);
  for (const char* name : {"new/a", "abs/b", "c"}) {
    EXPECT_TRUE(fs::is_regular_file(m_dir / (std::string("elsewhere/") + name))) << name;
  }
  bool created = false;
  std::string failed;
  EXPECT_TRUE(root.MakeDirectory(m_dir / "elsewhere/dir/", created, failed));
  EXPECT_TRUE(created);
  EXPECT_TRUE(root.MakeDirectory("/", created, failed));
  EXPECT_FALSE(created);
  EXPECT_FALSE(root.MakeDirectory("/dev/null/x", created, failed));
  EXPECT_EQ(failed, "/dev/null");
}

}  // namespace
}  // namespace tolven

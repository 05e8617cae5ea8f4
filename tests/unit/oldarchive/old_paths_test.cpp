#include "oldarchive/old_paths.h"

#include <gtest/gtest.h>

namespace tolven {
namespace {

TEST(OldPaths, Normalize) {
  const char* cases[][2] = {
      {"a", "a"}, {"./a", "a"}, {"a//b/./c/", "a/b/c"}, {"/", "/"}, {"//x", "/x"}, {"../a", "../a"},
      {"", "."},  {"./", "."},  {"a/../b", "a/../b"},
  };
  for (const auto& [path, expected] : cases) EXPECT_EQ(NormalizePath(path), expected) << path;
}

TEST(OldPaths, FilenameOnDisk) {
  const PathSettings safe;
  const PathSettings raw{.validate = false};
  const struct {
    PathSettings settings;
    char type;
    std::string target;
    const char* path;  // null: no name can be made
  } cases[] = {
      {safe, 'F', "../../etc/x", "etc/x"},
      {safe, 'F', "/etc/x", "etc/x"},
      {safe, 'F', "..", nullptr},
      {safe, 'F', "/", nullptr},
      {safe, 'D', "..", "."},
      {safe, 'D', "d/", "d"},
      {raw, 'F', "../x", "../x"},
      {raw, 'F', "", nullptr},
      {raw, 'F', "d/", nullptr},
      {raw, 'D', "", nullptr},
      {safe, 'F', std::string(4351, 'x'), nullptr},
  };
  for (const auto& expected : cases) {
    FileInfo info;
    info.type = expected.type;
    info.target = expected.target;
    std::string path;
    const bool possible = CreateFilename(expected.settings, info, path);
    if (expected.target.size() > 4000) {
      EXPECT_TRUE(possible) << "4351 characters are the most";
      info.target += 'x';
      EXPECT_FALSE(CreateFilename(expected.settings, info, path));
      continue;
    }
    EXPECT_EQ(possible, expected.path != nullptr) << expected.target;
    if (possible && expected.path != nullptr) {
      EXPECT_EQ(path, expected.path);
    }
  }
}

TEST(OldPaths, Selection) {
  const struct {
    std::vector<std::string> names;
    const char* entry;
    bool selected;
  } cases[] = {
      {{}, "any/thing", true},
      {{"a"}, "a", true},
      {{"a"}, "a/b", true},
      {{"a"}, "ab", false},
      {{"a"}, "x/a", false},
      {{"*"}, ".hidden/x", true},
      {{"a/b"}, "a", false},
      {{"a/b"}, "a/b/c", true},
      {{"?"}, "a/long", true},
      {{"*.c"}, "dir/x.c", true},
      {{"*.c"}, "dir/x.h", false},
      {{"no", "a"}, "a", true},
      {{"dir"}, "./dir//x", true},
      {{"dir"}, "dir/", true},
      {{"*.d"}, "x.d/file", true},
      {{"/abs"}, "/abs/file", true},
      {{"abs"}, "/abs/file", false},
      {{"d/x", "d!", "d", "d/y"}, "d/z", true},
      {{"d", "d/x", "d!"}, "d!x", false},
  };
  for (const auto& expected : cases) {
    FileInfo info;
    info.name = info.target = expected.entry;
    EXPECT_EQ(DoesFilenameMatch(NameSelection(expected.names), info), expected.selected)
        << (expected.names.empty() ? "" : expected.names[0]) << " on " << expected.entry;
  }
}

}  // namespace
}  // namespace tolven

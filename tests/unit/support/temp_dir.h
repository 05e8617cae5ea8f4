#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/scratch.h"

namespace tolven::test {

// A scratch directory that is the current one while the object lives.
class TempDir : public Scratch {
 public:
  TempDir() { std::filesystem::current_path(Path()); }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::current_path(m_previous, ignored);
  }
  std::string operator/(const std::string& name) const { return File(name); }

 private:
  std::filesystem::path m_previous = std::filesystem::current_path();
};

// Every test of a suite that touches the disk has a directory of its own.
class TempDirTest : public ::testing::Test {
 protected:
  TempDir m_dir;
};

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream stream(path, std::ios::binary);
  stream << content;
  stream.close();
  ASSERT_TRUE(stream) << path;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  EXPECT_TRUE(stream) << path;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace tolven::test

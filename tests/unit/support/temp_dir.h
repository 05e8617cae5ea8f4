#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/scratch.h"

namespace tolven::test {

// A scratch directory that is the current one while the object lives.
class TempDir {
 public:
  TempDir() : m_previous(std::filesystem::current_path()) { std::filesystem::current_path(m_scratch.Path()); }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::current_path(m_previous, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path() const { return m_scratch.Path().string(); }
  std::string operator/(const std::string& name) const { return m_scratch.File(name); }

 private:
  Scratch m_scratch;
  std::filesystem::path m_previous;
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

#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tolven::test {

// A fresh directory that is the current one while the object lives; removed with everything in it.
class TempDir {
 public:
  TempDir() : m_previous(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "tolven-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::filesystem::filesystem_error("mkdtemp", name, {});
    m_path = std::filesystem::canonical(name);
    std::filesystem::current_path(m_path);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::current_path(m_previous, ignored);
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path() const { return m_path.string(); }
  std::string operator/(const std::string& name) const { return (m_path / name).string(); }

 private:
  std::filesystem::path m_previous;
  std::filesystem::path m_path;
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

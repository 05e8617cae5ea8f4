#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "tolven/tolven.h"

namespace tolven {
namespace {

// An archive of one empty file.
std::string ArchiveOf(const std::string& name) {
  std::string header(34, '\0');
  header.replace(0, 2, "RG");
  header[2] = '\244';  // mode 0644
  header[3] = '\1';
  header[32] = static_cast<char>(name.size() + 1);
  return "ORV 2.01" + header + name + '\0';
}

class LibraryTest : public test::TempDirTest {};

// Calls change the working directory and the options of the whole process.
TEST_F(LibraryTest, ThreadsWaitForEachOther) {
  constexpr int kCalls = 25;
  const std::string done = "(version 2.01)\nTOLVEN: 1 file(s) extracted\n";
  std::atomic<int> running = 0;
  const auto extract = [&running](std::string archive, std::string target) {
    for (int count = 0; count < kCalls; ++count) {
      EXPECT_EQ(extractTOLVENArchive(archive.c_str(), target.c_str()), 0);
      EXPECT_TRUE(std::filesystem::remove(target + "/file"));
    }
    --running;
  };
  test::WriteFile("archive", ArchiveOf("file"));
  std::vector<std::jthread> threads;
  // All before the first call: it changes the directory that these names are relative to.
  const std::vector<std::string> targets = {"one", "two", "three", "four"};
  for (const std::string& name : targets) std::filesystem::create_directory(name);
  running = static_cast<int>(targets.size());
  for (const std::string& name : targets) threads.emplace_back(extract, m_dir / "archive", m_dir / name);
  while (running > 0) {
    const char* text = getTOLVENOutput();
    EXPECT_TRUE(text == nullptr || std::string(text).ends_with(done)) << text;
  }
}

const char* g_text = nullptr;

// The first handler registered is the last that is called: everything of the library is over by then.
TEST_F(LibraryTest, TextIsThereInExitHandlers) {
  const auto leave = [] {
    std::atexit([] { _exit(std::string(g_text).starts_with("TOLVEN: error opening missing") ? 7 : 8); });
    extractTOLVENArchive("missing", nullptr);
    g_text = getTOLVENOutput();
    extractTOLVENArchive("another", nullptr);
    std::exit(0);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace tolven

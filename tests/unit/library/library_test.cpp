#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "tolven/archive.h"
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

// Writes, reads and extracts an archive of its own, over and over.
void WorkWithHandles(const std::string& directory, char letter) {
  const std::string path = directory + "/archive";
  const int target = open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  const auto writer = std::unique_ptr<tolven_writer, decltype(&tolven_writer_free)>(
      tolven_writer_new(nullptr), tolven_writer_free);
  const auto reader =
      std::unique_ptr<tolven_archive, decltype(&tolven_free)>(tolven_new(nullptr), tolven_free);
  for (int count = 0; count < 10; ++count) {
    tolven_entry entry{};
    entry.struct_size = sizeof entry;
    entry.name = "file";
    entry.name_size = 4;
    entry.type = TOLVEN_FILE;
    entry.mode = 0600;
    entry.size = 200000;
    const auto data = [](void* context, void* buffer, std::size_t size) {
      std::memset(buffer, *static_cast<char*>(context), std::min<std::size_t>(size, 50000));
      return static_cast<std::int64_t>(std::min<std::size_t>(size, 50000));
    };
    ASSERT_EQ(tolven_create(writer.get(), path.c_str()), TOLVEN_OK);
    // More than the entry says: a failure of this thread alone.
    if (count % 2 == 1) {
      EXPECT_EQ(tolven_add_entry(writer.get(), &entry, data, &letter), TOLVEN_E_LENGTH);
      continue;
    }
    entry.size = 0;
    ASSERT_EQ(tolven_add_entry(writer.get(), &entry, nullptr, nullptr), TOLVEN_OK);
    ASSERT_EQ(tolven_add_path(writer.get(), "/proc/self/exe", "link", 4), TOLVEN_OK);
    ASSERT_EQ(tolven_add_path(writer.get(), (directory + "/data").c_str(), "data", 4), TOLVEN_OK);
    ASSERT_EQ(tolven_finish(writer.get()), TOLVEN_OK);
    ASSERT_EQ(tolven_open(reader.get(), path.c_str()), TOLVEN_OK);
    ASSERT_EQ(tolven_extract_all(reader.get(), target, 0), TOLVEN_OK) << tolven_error_text(reader.get());
    ASSERT_EQ(tolven_index(reader.get()), TOLVEN_OK);
    ASSERT_EQ(tolven_index_find(reader.get(), "data", 4, &entry), TOLVEN_OK);
    char seen = 0;
    EXPECT_EQ(tolven_entry_pread(&entry, &seen, 1, 99999), 1);
    EXPECT_EQ(seen, letter);
    EXPECT_NE(tolven_open(reader.get(), (directory + "/missing").c_str()), TOLVEN_OK);
  }
  close(target);
}

TEST_F(LibraryTest, HandlesOfManyThreads) {
  std::vector<std::jthread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    const std::string directory = m_dir / std::string(1, letter);
    std::filesystem::create_directory(directory);
    test::WriteFile(directory + "/data", std::string(100000, letter));
    threads.emplace_back(WorkWithHandles, directory, letter);
  }
}

}  // namespace
}  // namespace tolven

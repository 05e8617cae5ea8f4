#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "signing/crypto/dkv_loader.h"
#include "signing/crypto/dkv_table.h"
#include "signing/crypto/qelsecu.h"

namespace tolven {
namespace {

std::vector<std::string> messages;
std::vector<std::string> errors;

void OnMessage(const char* text) {
  messages.emplace_back(text);
}
void OnError(int result, const char* name) {
  errors.push_back(std::to_string(result) + " " + name);
}

std::string Log() {
  const char* log = std::getenv("TINY_LOG");
  return log == nullptr ? "" : log;
}

class Loader : public ::testing::Test {
 protected:
  void SetUp() override {
    messages.clear();
    errors.clear();
    unsetenv("TINY_LOG");
    setenv("SECUDIR", "/somewhere", 1);
  }
  void TearDown() override { DkvSupEnd(&m_table); }
  int Load(const char* name) { return DkvSupInitEx(name, &m_table, OnError, OnMessage, kDkvLevelAll); }
  static bool Said(const std::string& text) {
    return std::find(messages.begin(), messages.end(), text) != messages.end();
  }

  DkvTable m_table;
};

TEST_F(Loader, MissingLibrary) {
  EXPECT_EQ(Load("/nowhere/lib.so"), 10);
  EXPECT_TRUE(Said("\n===...could not load DKV library /nowhere/lib.so .\n\n"));
  EXPECT_EQ(errors, std::vector<std::string>{"10 /nowhere/lib.so"});
  EXPECT_EQ(m_table.state, DkvTableState::kUnloaded);
  EXPECT_EQ(Load("libnosuchlibrary.so"), 10);
  EXPECT_EQ(Load(""), 10);
  EXPECT_EQ(Load(nullptr), 10);
  // A failed load may be tried again with another name.
  EXPECT_EQ(Load(tiny_own_FILE), 5);
}

TEST_F(Loader, RefusingLibrary) {
  EXPECT_EQ(Load(tiny_refusing_FILE), 10);
  EXPECT_TRUE(
      Said("\n===...DKV could not initialize using qelcr_init in library " tiny_refusing_FILE " . RC=7\n\n"));
  EXPECT_EQ(m_table.Get(DkvRow::DkvRcName), nullptr);
  EXPECT_EQ(m_table.library, nullptr);
  EXPECT_FALSE(QelSecu_IsDlHandle());
  EXPECT_EQ(Load(tiny_own_FILE), 5);
}

TEST_F(Loader, EndCallsDoneOnlyForTheMakersOwnFromEightOn) {
  struct Row {
    const char* file;
    bool own;
    bool done;
  };
  for (const Row& row : {Row{tiny_own_FILE, true, true}, Row{tiny_old_FILE, true, false},
                         Row{tiny_foreign_FILE, false, false}}) {
    unsetenv("TINY_LOG");
    ASSERT_EQ(Load(row.file), 5);
    EXPECT_EQ(DkvSupToolkitIsQELCrypto(&m_table), row.own) << row.file;
    DkvSupEnd(&m_table);
    EXPECT_EQ(Log().find("done") != std::string::npos, row.done) << row.file;
    EXPECT_EQ(m_table.Get(DkvRow::DkvRcName), nullptr);
    EXPECT_FALSE(m_table.loaded[static_cast<std::size_t>(DkvRow::DkvRcName)]);
    EXPECT_EQ(m_table.state, DkvTableState::kUnloaded);
    EXPECT_FALSE(QelSecu_IsDlHandle());
    const std::string log = Log();
    DkvSupEnd(&m_table);
    EXPECT_EQ(Log(), log);
  }
}

// A plain name is found beside the executable although nothing else points there, and only a name without
// "/".
TEST_F(Loader, BesideTheExecutable) {
  const auto directory = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const auto name = "libtiny-beside-" + std::to_string(getpid()) + ".so";
  std::filesystem::copy_file(tiny_own_FILE, directory / name);
  EXPECT_EQ(Load(name.c_str()), 5);
  DkvSupEnd(&m_table);
  EXPECT_EQ(Load(("./no-such-directory/" + name).c_str()), 10);
  std::filesystem::remove(directory / name);
  EXPECT_EQ(Load(name.c_str()), 10);
}

}  // namespace
}  // namespace tolven

#include "fileio/remove_on_signal.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "support/temp_dir.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

class RemoveOnSignalTest : public test::TempDirTest {
 protected:
  // Runs `body` in a child and returns how that ended.
  static int RunChild(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
      body();
      _exit(7);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
  }
};

TEST_F(RemoveOnSignalTest, IgnoredSignalsStayIgnored) {
  test::WriteFile("archive", "x");
  const int status = RunChild([] {
    signal(SIGINT, SIG_IGN);
    const CRemoveOnSignal archive("archive");
    raise(SIGINT);
  });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
  EXPECT_TRUE(fs::exists("archive"));
}

TEST_F(RemoveOnSignalTest, AHeldSignalWaitsForTheGuard) {
  for (const int signal : {SIGINT, SIGTERM}) {
    test::WriteFile("temp", "x");
    const int status = RunChild([signal] {
      const CRemoveOnSignal other("other");
      std::optional<CHoldSignals> hold(std::in_place);
      raise(signal);
      const CRemoveOnSignal temp("temp");
      hold.reset();
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_FALSE(fs::exists("temp"));
  }
}

TEST_F(RemoveOnSignalTest, ManyFilesInTurn) {
  test::WriteFile("last", "x");
  const int status = RunChild([] {
    for (int i = 0; i < 1000; ++i) const CRemoveOnSignal guard("file" + std::to_string(i));
    const CRemoveOnSignal last("last");
    raise(SIGTERM);
  });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_FALSE(fs::exists("last"));
}

}  // namespace
}  // namespace tolven

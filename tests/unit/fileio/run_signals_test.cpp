#include "fileio/run_signals.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "support/temp_dir.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

class RemoveFile final : public CUndoOnSignal {
 public:
  explicit RemoveFile(const char* name) : m_name(name) { Arm(); }
  ~RemoveFile() override { Disarm(); }
  void Undo() noexcept override { unlink(m_name); }

 private:
  const char* m_name;
};

void Nothing(int) {}

struct sigaction ActionOf(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return action;
}

class RunSignalsTest : public test::TempDirTest {
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

TEST_F(RunSignalsTest, UndoesAndDiesByTheSignal) {
  struct Case {
    const char* name;
    std::function<void(int)> body;
  };
  const Case cases[] = {
      {"armed",
       [](int signal) {
         for (int i = 0; i < 1000; ++i) const RemoveFile earlier("nothing");
         const RemoveFile file("file");
         raise(signal);
       }},
      {"held until it is armed",
       [](int signal) {
         std::optional<CHoldSignals> hold(std::in_place);
         raise(signal);
         raise(signal);
         const RemoveFile file("file");
         hold.reset();
       }},
      {"caught by another thread",
       [](int signal) {
         const RemoveFile file("file");
         std::thread([signal] { pthread_kill(pthread_self(), signal); }).join();
         for (;;) pause();
       }},
  };
  for (const Case& test : cases) {
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU}) {
      test::WriteFile("file", "x");
      const int status = RunChild([&] { test.body(signal); });
      ASSERT_TRUE(WIFSIGNALED(status)) << test.name << " " << signal;
      EXPECT_EQ(WTERMSIG(status), signal) << test.name;
      EXPECT_FALSE(fs::exists("file")) << test.name << " " << signal;
    }
  }
}

TEST_F(RunSignalsTest, AHostKeepsItsHandlersAndFindsThemAgain) {
  const int status = RunChild([] {
    signal(SIGTERM, Nothing);
    signal(SIGXFSZ, SIG_DFL);
    for (int call = 0; call < 2; ++call) {
      {
        const CRunSignals run;
        const RemoveFile file("file");
        const bool ours = ActionOf(SIGINT).sa_handler != SIG_DFL && ActionOf(SIGTERM).sa_handler == Nothing &&
                          ActionOf(SIGXFSZ).sa_handler == SIG_IGN;
        if (!ours) _exit(1);
      }
      for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGXCPU, SIGXFSZ}) {
        if (ActionOf(signal).sa_handler != SIG_DFL) _exit(2);
      }
      if (ActionOf(SIGTERM).sa_handler != Nothing) _exit(3);
    }
  });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

}  // namespace
}  // namespace tolven

#include "main/run/processor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "report/except.h"
#include "support/args.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;

// A command whose work is written down in the test; tells when it dies.
class FakeCommand : public CCommand {
 public:
  FakeCommand(std::function<void()> work, int& alive) : m_work(std::move(work)), m_alive(alive) { ++m_alive; }
  ~FakeCommand() override { --m_alive; }
  void Execute() override { m_work(); }

 private:
  std::function<void()> m_work;
  int& m_alive;
};

class FakeFactory : public ICommandFactory {
 public:
  std::unique_ptr<CCommand> MakeCommand(int code, CProcessor&) const override {
    m_code = code;
    if (!m_work) return nullptr;
    return std::make_unique<FakeCommand>(m_work, m_alive);
  }
  std::function<void()> m_work = [] {};
  mutable int m_code = -1;
  mutable int m_alive = 0;
};

class ProcessorTest : public test::TempDirTest {
 protected:
  ProcessorTest() {
    CProcessor::Destroy();
    m_proc = CProcessor::GetTheProcessor();
    auto log = std::make_unique<CAPILogMan>();
    m_log = log.get();
    m_proc->SetLogManager(std::move(log));
    m_proc->SetCommandFactory(m_factory);
  }
  ~ProcessorTest() override { CProcessor::Destroy(); }

  // Runs like main does and returns the exit code; the message of an exception ends up in the log.
  int Run(
      const std::string& text, std::function<void()> work = [] {}) {
    m_args = std::make_unique<test::Args>(text);
    m_factory.m_work = std::move(work);
    try {
      m_proc->CmdLine().SetOptions(m_args->Count(), m_args->Vector());
      m_proc->Run();
    } catch (const CExcept& except) {
      m_proc->LogManager().PrintInfo(except);
    }
    EXPECT_EQ(m_factory.m_alive, 0) << "the command dies with the run";
    return m_proc->ExitCode();
  }
  // The same, from a fresh start.
  int Again(
      const std::string& text, std::function<void()> work = [] {}) {
    m_proc->Reset();
    auto log = std::make_unique<CAPILogMan>();
    m_log = log.get();
    m_proc->SetLogManager(std::move(log));
    return Run(text, std::move(work));
  }
  const std::string& Output() const { return m_log->GetOutput(); }

  FakeFactory m_factory;
  CProcessor* m_proc = nullptr;
  CAPILogMan* m_log = nullptr;
  std::unique_ptr<test::Args> m_args;
};

TEST_F(ProcessorTest, RunsTheCommandOfTheCode) {
  const std::pair<std::string, int> cases[] = {
      {"-c n", 1}, {"-d", 2}, {"-x", 3}, {"-t", 4}, {"-a n", 5}, {"-m", 6}, {"-l n", 7}, {"-S", 8}, {"-M", 9},
  };
  for (const auto& [args, code] : cases) {
    bool ran = false;
    EXPECT_EQ(Again(args,
                    [&] {
                      ran = true;
                      EXPECT_EQ(m_proc->Command(), code);
                      EXPECT_EQ(m_proc->StartDirectory(), m_dir.Path());
                      EXPECT_EQ(errno, 0);
                    }),
              0);
    EXPECT_TRUE(ran);
    EXPECT_EQ(m_factory.m_code, code);
    EXPECT_EQ(Output(), "");
  }
}

TEST_F(ProcessorTest, PreparesNamesBeforeTheCommand) {
  test::WriteFile("list", "b\n");
  test::WriteFile("out", "c\nd\n");
  Run("-c -A list -X out a/ c", [this] {
    EXPECT_EQ(m_proc->CmdLine().GetNames(), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(m_proc->ExcludeThis("d"));
    EXPECT_FALSE(m_proc->ExcludeThis("D"));
    EXPECT_FALSE(m_proc->ExcludeThis("d/"));
    EXPECT_FALSE(m_proc->ExcludeThis(""));
  });
  EXPECT_EQ(m_factory.m_code, CMD_CREATE);
}

TEST_F(ProcessorTest, NoCommand) {
  EXPECT_EQ(Run("name -v"), 21);
  EXPECT_EQ(Output(),
            "TOLVEN: please specify a command (one of -c, -x, -t, -d, -a, -m, -l, -S, -M) (error 21). \n");
  EXPECT_EQ(m_factory.m_code, -1);
  EXPECT_EQ(Again("-t", nullptr), 21) << "a factory that does not know the code";
  EXPECT_EQ(Output(), "TOLVEN: no valid command given (error 21). \n");
}

TEST_F(ProcessorTest, ArchiveName) {
  Run("-t");
  EXPECT_STREQ(m_proc->ArchiveName(), "DEFAULT.VRA");
  Again("-t -f A_B.VRA,C");
  EXPECT_STREQ(m_proc->ArchiveName(), "A B.VRA,C");
  const std::string longName(5000, 'n');
  Again("-tf " + longName);
  EXPECT_EQ(m_proc->ArchiveName(), longName.substr(0, 4351));
}

TEST_F(ProcessorTest, LastExitCodeWins) {
  EXPECT_EQ(Run("-x", [] { throw CChecksumExcept("f"); }), 12);
  EXPECT_EQ(Output(), "TOLVEN: checksum error in f\n");
  EXPECT_EQ(Again("-x",
                  [] {
                    const CWriteExcept handledInside("f");
                    (void)handledInside;
                  }),
            4)
      << "a run that handled an error itself still says so";
  EXPECT_EQ(Again("-x", [] { CExcept::NotifyProcessor(36); }), 36);
}

// Which archive survives which failure of a create or append.
TEST_F(ProcessorTest, CleanUpAfterAFailure) {
  struct Case {
    std::string name;
    std::function<void()> work;
    int exitCode;
    bool stays;
    bool staysWithI;
  };
  const Case cases[] = {
      {"success", [] {}, 0, true, true},
      {"write", [] { throw CWriteExcept("A.VRA"); }, 4, false, false},
      {"read", [] { throw CReadExcept("f"); }, 5, false, false},
      {"manifest", [] { throw CInvalManifestExcept("", 10, 0); }, 57, false, true},
      {"signature", [] { throw CInvalSignatureExcept("", 1); }, 60, false, true},
      {"other", [] { throw COpenExcept("A.VRA"); }, 6, true, true},
      {"inaccessible", [this] { m_proc->FileNotAvail("f"); }, 44, false, true},
  };
  for (const Case& test : cases) {
    for (const char* command : {"-c n", "-a n", "-ci n", "-ai n", "-S", "-m", "-x"}) {
      SCOPED_TRACE(test.name + " " + command);
      test::WriteFile("A.VRA", "half");
      const int exitCode = Again(std::string(command) + " -f A.VRA", test.work);
      const std::string text = command;
      const bool writing = text.starts_with("-c") || text.starts_with("-a");
      const bool stays = !writing || (text.find('i') == std::string::npos ? test.stays : test.staysWithI);
      EXPECT_EQ(fs::exists("A.VRA"), stays);
      EXPECT_EQ(exitCode, writing || test.exitCode != 44 ? test.exitCode : 0);
    }
  }
}

TEST_F(ProcessorTest, DeletesFromTheStartDirectoryWhenNotHere) {
  fs::create_directory("sub");
  const auto fail = [this] {
    fs::current_path("sub");
    throw CWriteExcept("A.VRA");
  };
  // As it stands, here.
  test::WriteFile("A.VRA", "x");
  test::WriteFile("sub/A.VRA", "x");
  Again("-c n -f A.VRA", fail);
  EXPECT_TRUE(fs::exists(m_dir / "A.VRA"));
  EXPECT_FALSE(fs::exists(m_dir / "sub/A.VRA"));
  // Below the start directory.
  fs::current_path(m_dir.Path());
  Again("-c n -f A.VRA", fail);
  EXPECT_FALSE(fs::exists(m_dir / "A.VRA"));
  // With "\" as separator, and an absolute name appended.
  for (const char* name : {"sub\\B.VRA", "/sub/B.VRA"}) {
    test::WriteFile(m_dir / "sub/B.VRA", "x");
    fs::current_path(m_dir.Path());
    Again(std::string("-c n -f ") + name, [] { throw CWriteExcept("B.VRA"); });
    EXPECT_FALSE(fs::exists(m_dir / "sub/B.VRA")) << name;
  }
}

TEST_F(ProcessorTest, InaccessibleFiles) {
  const auto report = [this] {
    EXPECT_FALSE(m_proc->ScanOnly());
    m_proc->FileNotAvail("a", "broken link");
    m_proc->FileNotAvail("b");
    EXPECT_EQ(m_proc->ScanOnly(), !m_proc->Options().ignoreInaccessible);
  };
  EXPECT_EQ(Run("-c n", report), 44);
  EXPECT_EQ(Output(), "TOLVEN: file 'a' is inaccessible (broken link)\nTOLVEN: file 'b' is inaccessible\n");
  EXPECT_TRUE(m_proc->HasInaccessibleFiles());
  EXPECT_FALSE(fs::exists("tolven.log"));
  EXPECT_EQ(Again("-ci n", report), 44);
  EXPECT_EQ(Again("-c n"), 0) << "nothing is left of the run before";
  EXPECT_FALSE(m_proc->HasInaccessibleFiles());
}

TEST_F(ProcessorTest, InaccessibleFilesWithRedirection) {
  EXPECT_EQ(Run("-e -c n",
                [this] {
                  m_proc->FileNotAvail("a", "reason");
                  m_proc->FileNotAvail("b");
                }),
            44);
  EXPECT_EQ(test::ReadFile("tolven.log"),
            "# List of inaccessible files\n# ==========================\na\nb\n");
  EXPECT_EQ(Output(), "TOLVEN: some files could not be accessed (see TOLVEN.log for details)\n");

  fs::remove("tolven.log");
  fs::create_directory("tolven.log");
  EXPECT_EQ(Again("-e -c n", [this] { m_proc->FileNotAvail("a"); }), 6);
  EXPECT_EQ(Output(), "TOLVEN: error opening tolven.log (error 6). Is a directory\n");
}

TEST_F(ProcessorTest, RedirectionTakesEveryLineAndEndsWithReset) {
  m_proc->SetLogManager(std::make_unique<CConsoleLogMan>());
  testing::internal::CaptureStdout();
  m_proc->LogManager().PrintString("before");
  test::WriteFile("tolven_output", "old content");
  EXPECT_EQ(Run("-e -x",
                [this] {
                  m_proc->LogManager().PrintString("inside");
                  throw CDecompExcept("f");
                }),
            11);
  m_proc->Reset();
  m_proc->LogManager().PrintString("after");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "before\nafter\n");
  EXPECT_EQ(test::ReadFile("tolven_output"), "inside\nTOLVEN: error decompressing f\n");
}

TEST_F(ProcessorTest, RedirectionThatFailsKeepsTheOutput) {
  fs::create_directory("tolven_output");
  m_proc->SetLogManager(std::make_unique<CConsoleLogMan>());
  testing::internal::CaptureStdout();
  EXPECT_EQ(Run("-e -x", [this] { m_proc->LogManager().PrintString("inside"); }), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "TOLVEN: could not redirect stdout to file tolven_output\ninside\n");
}

TEST_F(ProcessorTest, Statistics) {
  const auto work = [this] { m_proc->Statistics().CountFile(); };
  Run("-xn", work);
  EXPECT_TRUE(Output().starts_with("Printing program statistics for TOLVEN...\ntime elapsed: 00:00:0"));
  EXPECT_TRUE(Output().ends_with("\nFiles processed: 1\n"));
  Again("-xn", work);
  EXPECT_TRUE(Output().ends_with("\nFiles processed: 1\n")) << "the count starts afresh";
  Again("-x -n", [] { throw CDecompExcept("f"); });
  EXPECT_EQ(Output(), "TOLVEN: error decompressing f\n");
  EXPECT_EQ(Again("-cn n", [this] { m_proc->FileNotAvail("a"); }), 44);
  EXPECT_TRUE(Output().ends_with("\nFiles processed: 0\n"));
}

TEST_F(ProcessorTest, StaleErrnoReachesNoMessage) {
  errno = EIO;
  EXPECT_EQ(Run("-c"), 29);
  EXPECT_EQ(Output(), "TOLVEN: no files given for archiving (error 29). \n");
}

TEST_F(ProcessorTest, SingletonsEndTogether) {
  Run("-xvf A.VRA");
  CProcessor::Destroy();
  EXPECT_EQ(CCmdLine::GetTheCmdLine()->Options().archiveText, nullptr);
  EXPECT_EQ(RunStatus::Current().logManager, nullptr);
  m_proc = CProcessor::GetTheProcessor();
  EXPECT_EQ(m_proc->ExitCode(), 0);
  EXPECT_EQ(&m_proc->CmdLine(), CCmdLine::GetTheCmdLine());
}

}  // namespace
}  // namespace tolven

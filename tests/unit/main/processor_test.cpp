#include "main/processor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "report/except.h"
#include "support/split.h"
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
  std::unique_ptr<CCommand> MakeCommand(int, IRunServices&) const override {
    return std::make_unique<FakeCommand>(m_work, m_alive);
  }
  std::function<void()> m_work = [] {};
  mutable int m_alive = 0;
};

class ProcessorTest : public test::TempDirTest {
 protected:
  ProcessorTest() {
    CProcessor::Destroy();
    m_proc = CProcessor::GetTheProcessor();
    m_proc->SetCommandFactory(m_factory);
  }
  ~ProcessorTest() override { CProcessor::Destroy(); }

  // Runs like main does, from a fresh start, and returns the exit code.
  int Run(const std::string& text, std::function<void()> work) {
    m_proc->Reset();
    m_proc->SetLogManager(m_log);
    m_args = test::Split("TOLVEN|" + text);
    std::vector<char*> pointers;
    for (std::string& word : m_args) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    m_factory.m_work = std::move(work);
    try {
      m_proc->CmdLine().SetOptions(static_cast<int>(m_args.size()), pointers.data());
      m_proc->Run();
    } catch (const CExcept& except) {
      m_proc->LogManager().PrintInfo(except);
    }
    EXPECT_EQ(m_factory.m_alive, 0) << "the command dies with the run";
    return m_proc->ExitCode();
  }

  CAPILogMan m_log;
  FakeFactory m_factory;
  CProcessor* m_proc = nullptr;
  std::vector<std::string> m_args;
};

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
      {"write", [] { throw CWriteExcept("A.VRA", kNoSystemError); }, 4, false, false},
      {"read", [] { throw CReadExcept("f"); }, 5, false, false},
      {"manifest", [] { throw CInvalManifestExcept("", 10, 0); }, 57, false, true},
      {"signature", [] { throw CInvalSignatureExcept("", 1); }, 60, false, true},
      {"other", [] { throw COpenExcept("A.VRA", kNoSystemError); }, 6, true, true},
      {"inaccessible", [this] { m_proc->FileNotAvail("f"); }, 44, false, true},
  };
  for (const Case& test : cases) {
    for (const char* command : {"-c|n", "-a|n", "-ci|n", "-ai|n", "-S", "-m", "-x"}) {
      SCOPED_TRACE(test.name + " " + command);
      test::WriteFile("A.VRA", "half");
      const int exitCode = Run(std::string(command) + "|-f|A.VRA", [&] {
        ASSERT_TRUE(m_proc->ArchiveFile().Open("A.VRA", O_WRONLY));
        test.work();
      });
      const std::string text = command;
      const bool writing = text.starts_with("-c") || text.starts_with("-a");
      const bool stays = !writing || (text.find('i') == std::string::npos ? test.stays : test.staysWithI);
      EXPECT_EQ(fs::exists("A.VRA"), stays);
      EXPECT_EQ(exitCode, writing || test.exitCode != 44 ? test.exitCode : 0);
    }
  }
}

// Looked for from the current directory, then from the start directory, with "\" for "/" and an absolute name
// appended: but only the file that the run opened goes.
TEST_F(ProcessorTest, DeletesTheFileItOpenedWhereverItIsFound) {
  struct Case {
    const char* name;
    const char* opened;
  };
  fs::create_directories("sub/sub");
  for (const Case& test : {Case{"A.VRA", "sub/A.VRA"}, Case{"A.VRA", "A.VRA"},
                           Case{"sub\\A.VRA", "sub/A.VRA"}, Case{"/sub/A.VRA", "sub/A.VRA"}}) {
    SCOPED_TRACE(std::string(test.name) + " " + test.opened);
    const auto files = {"A.VRA", "sub/A.VRA", "sub/sub/A.VRA"};
    for (const char* file : files) test::WriteFile(m_dir / file, "x");
    Run(std::string("-c|n|-f|") + test.name, [&] {
      ASSERT_TRUE(m_proc->ArchiveFile().Open(test.opened, O_WRONLY));
      fs::current_path("sub");
      throw CWriteExcept("A.VRA", kNoSystemError);
    });
    fs::current_path(m_dir.Path());
    for (const std::string file : files) EXPECT_EQ(fs::exists(file), file != test.opened) << file;
  }
}

}  // namespace
}  // namespace tolven

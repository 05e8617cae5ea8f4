// The flat entry points.
#include "oldarchive/old_reader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "report/log_man.h"
#include "report/run_status.h"
#include "support/old_archive_writer.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using test::OldArchive;
using test::OldFile;
using test::ReadFile;
using test::WriteFile;

class OldReader : public test::TempDirTest {
 protected:
  OldReader() {
    WriteFile("a.orv",
              OldArchive({test::OldDirectory("d"), OldFile("d/a", "first"), OldFile("b", "second")}));
    test::OldEntry wrong = OldFile("w", "wrong");
    wrong.line = test::OldLine('F', "w", 0644, wrong.stream.size(), 5, 7, 4711);
    WriteFile("wrong.orv", OldArchive({wrong}));
  }

  int Call(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "orv");
    return iaxxorvl_ORV_Callback(
        static_cast<int>(arguments.size()), arguments.data(),
        [](const char* name, void* names) { *static_cast<std::string*>(names) += std::string(name) + ";"; },
        &m_names, &m_error, &m_text);
  }

  CAPILogMan m_log;
  RunStatus m_status{.exitCode = 0, .logManager = &m_log};
  RunStatusScope m_scope{m_status};
  std::string m_names;
  int m_error = 0;
  std::string m_text;
};

TEST_F(OldReader, Commands) {
  EXPECT_EQ(Call({"-tf", "a.orv", "b"}), 1);
  EXPECT_NE(m_log.GetOutput().find("          6  "), std::string::npos) << m_log.GetOutput();
  EXPECT_EQ(Call({"-dvf", "a.orv", "d"}), 1);
  EXPECT_NE(m_log.GetOutput().find("t d\nt d/a\n"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists("d"));
  EXPECT_EQ(m_names, "b;d;d/a;");

  WriteFile("list", "d/a\n");
  mkdir("out", 0755);
  EXPECT_EQ(Call({"-xf", "a.orv", "-A", "list", "-R", "out"}), 1) << m_text;
  EXPECT_EQ(ReadFile("out/d/a"), "first");
  EXPECT_FALSE(std::filesystem::exists("out/b"));

  EXPECT_EQ(Call({"-cf", "new.orv", "b"}), 0);
  EXPECT_EQ(m_error, 11);
  EXPECT_EQ(m_text, "can't compress new.orv");
  EXPECT_EQ(Call({"-xf", "a.orv", "-R", "none"}), 0);
  EXPECT_EQ(m_text, "none: No such file or directory");
  EXPECT_EQ(m_status.exitCode, 0) << "the numbers go to the caller alone";
}

TEST_F(OldReader, ChecksumsAreComparedWithTheLetter) {
  EXPECT_EQ(Call({"-xVf", "wrong.orv"}), 0);
  EXPECT_EQ(m_error, 14);
  EXPECT_EQ(m_text, "checksum error w");
  EXPECT_FALSE(std::filesystem::exists("w"));
  EXPECT_EQ(Call({"-df", "wrong.orv"}), 0);
  EXPECT_EQ(Call({"-xf", "wrong.orv"}), 1);
  EXPECT_EQ(Call({"-xVf", "a.orv"}), 1);
}

TEST_F(OldReader, SeveralArchives) {
  EXPECT_EQ(Call({"-df", "a.orv, wrong.orv"}), 0);
  EXPECT_EQ(m_error, 14);
  EXPECT_EQ(m_names, "d;d/a;b;") << "the ones before the failure";
  m_names.clear();
  EXPECT_EQ(Call({"-tf", "*.orv"}), 1);
  EXPECT_EQ(m_names.size(), std::string("d;d/a;b;w;").size());
}

TEST_F(OldReader, ExtractionEntryPoints) {
  const char* list[] = {"orv", "-tf", "a.orv"};
  EXPECT_EQ(iaxxorvl_ORV_Extract(3, list, &m_error, &m_text), 0);
  EXPECT_EQ(m_error, 23);
  const char* extract[] = {"orv", "-xf", "a.orv"};
  EXPECT_EQ(iaxxorvl_ExtractArchive(3, extract, nullptr, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(ReadFile("b"), "second");
  EXPECT_EQ(iaxxorvl_ORV(3, extract, &m_error, &m_text), 1);
  EXPECT_EQ(iaxxorvl_ORV_Callback2(3, extract, nullptr, nullptr, "./none.orv", &m_error, &m_text), 0);
  EXPECT_EQ(m_text, "none.orv: No such file or directory");
}

TEST_F(OldReader, UncompressedBytes) {
  std::uint64_t size = 0;
  EXPECT_EQ(iaxxorvl_UncomprArchiveBytes("a.orv", &size, &m_error, &m_text), 1);
  EXPECT_EQ(size, 11U);
  EXPECT_EQ(iaxxorvl_UncomprArchiveBytes(nullptr, &size, &m_error, &m_text), 0);
  EXPECT_EQ(m_error, 6);
  WriteFile("huge.orv", "F a 644 0 18446744073709551615 7\nF b 644 0 1 7\n#\n");
  EXPECT_EQ(iaxxorvl_UncomprArchiveBytes("huge.orv", &size, &m_error, &m_text), 0);
  EXPECT_EQ(m_error, 12);
}

}  // namespace
}  // namespace tolven

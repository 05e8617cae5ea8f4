#include "oldarchive/old_extract.h"

#include <cerrno>
#include <vector>

#include "fileio/extract_root.h"
#include "oldarchive/old_decompress.h"
#include "oldarchive/old_messages.h"
#include "oldarchive/old_paths.h"
#include "oldarchive/old_target.h"
#include "report/run_status.h"

namespace tolven {
namespace {

// A stored checksum of 0 means that there is none.
bool CompareChecksum(const FileInfo& info, std::uint64_t checksum, int* error, std::string* text) {
  if (info.checksum == 0 || info.checksum == checksum) return true;
  return SetErrorMessage(error, text, OLD_CHECKSUM, info.name);
}

bool TestEntry(AppData& app, const FileInfo& info, int* error, std::string* text) {
  if (app.verbose) PrintLine("t " + info.target);
  if (info.IsDirectory()) return true;
  std::uint64_t checksum = 0;
  return Decompress(app, info, nullptr, std::string(), checksum, error, text) &&
         CompareChecksum(info, checksum, error, text);
}

// One extraction below the current directory.
class Extraction {
 public:
  explicit Extraction(AppData& app) : m_app(app), m_root(app.paths.validate) {}

  [[nodiscard]] bool Start(int* error, std::string* text) const;
  [[nodiscard]] bool ExtractEntry(const FileInfo& info, int* error, std::string* text);
  // Dates and modes of the directories, innermost first: while files were added they could not be set.
  [[nodiscard]] bool FinishDirectories(int* error, std::string* text);

 private:
  // An archive may be nothing but directories: what their lines say is read again.
  struct DirectoryRecord {
    std::size_t line;
    bool setMode;
  };

  bool ExtractDirectory(const FileInfo& info, const std::string& path, int* error, std::string* text);
  bool ExtractFile(const FileInfo& info, const std::string& path, int* error, std::string* text);

  AppData& m_app;
  CExtractRoot m_root;
  std::vector<DirectoryRecord> m_directories;
};

bool Extraction::Start(int* error, std::string* text) const {
  return m_root.IsOpen() || SetErrorMessage(error, text, OLD_GETCWD, std::string());
}

bool Extraction::ExtractEntry(const FileInfo& info, int* error, std::string* text) {
  std::string path;
  if (!CreateFilename(m_app.paths, info, path)) return SetErrorMessage(error, text, OLD_FILENAME, info.name);
  if (m_app.verbose) PrintLine("x " + path);
  return info.IsDirectory() ? ExtractDirectory(info, path, error, text)
                            : ExtractFile(info, path, error, text);
}

bool Extraction::ExtractDirectory(const FileInfo& info, const std::string& path, int* error,
                                  std::string* text) {
  if (path == ".") return true;  // the place that is extracted to stays as its owner made it
  bool created = false;
  std::string failed;
  errno = 0;
  if (!m_root.MakeDirectory(path, created, failed)) return DirectoryFailure(failed, error, text);
  m_directories.push_back({info.line, created || m_app.changeDirModes});
  return true;
}

bool Extraction::ExtractFile(const FileInfo& info, const std::string& path, int* error, std::string* text) {
  CPendingFile target(m_root, path);
  if (!CreateTarget(target, path, error, text)) return false;
  // What was decoded is what was written, so the sum over the output stands for the file read back.
  std::uint64_t checksum = 0;
  if (!Decompress(m_app, info, &target.Stream(), path, checksum, error, text)) return false;
  if (m_app.compareChecksums && !CompareChecksum(info, checksum, error, text)) return false;
  return CommitTarget(target, info, path, error, text);
}

bool Extraction::FinishDirectories(int* error, std::string* text) {
  bool complete = true;
  const auto fail = [&](int code, const std::string& path) {
    // One that cannot be finished keeps none of the others from it; the first is the one to report.
    if (complete) SetErrorMessage(error, text, code, path);
    complete = false;
  };
  for (auto record = m_directories.rbegin(); record != m_directories.rend(); ++record) {
    FileInfo info = m_app.entries.At(record->line);
    info.target = TransformPath(m_app.paths, info.name);
    std::string path;
    if (!CreateFilename(m_app.paths, info, path)) continue;  // it was made, so it can be made again
    errno = 0;
    if (!m_root.SetDirectoryDate(path, info.mtime)) fail(OLD_DIR_DATE, path);
    if (record->setMode && !m_root.SetDirectoryMode(path, info.mode & kOldModePermissions)) {
      fail(OLD_DIR_MODE, path);
    }
  }
  return complete;
}

bool WalkSelected(AppData& app, const std::function<bool(const FileInfo&)>& handle) {
  return ForEachSelected(app, [&](const FileInfo& info) {
    if (!handle(info)) return false;
    ReportEntry(app, info);
    return true;
  });
}

bool ExtractAll(AppData& app, int* error, std::string* text) {
  Extraction extraction(app);
  if (!extraction.Start(error, text)) return false;
  const bool complete =
      WalkSelected(app, [&](const FileInfo& info) { return extraction.ExtractEntry(info, error, text); });
  if (complete) return extraction.FinishDirectories(error, text);
  // The failure of the walk is the one to report.
  static_cast<void>(extraction.FinishDirectories(nullptr, nullptr));
  return false;
}

}  // namespace

int ExtractArchiveFiles(AppData& app, int* error, std::string* text) {
  return WithoutExceptions(error, text, [&] {
    if (app.command == 'x') return ExtractAll(app, error, text);
    return WalkSelected(app, [&](const FileInfo& info) { return TestEntry(app, info, error, text); });
  });
}

}  // namespace tolven

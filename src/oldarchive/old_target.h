#pragma once

#include <memory>
#include <string>

#include "fileio/extract_root.h"
#include "fileio/file_stream.h"
#include "fileio/remove_on_signal.h"
#include "oldarchive/app_data.h"

namespace tolven {

// A file while it is extracted: a temporary one beside its place, which takes the place only when everything
// has succeeded. Until then it is removed with the object, and when the process is told to end.
class OldTarget {
 public:
  // `root` must outlive the object.
  OldTarget(CExtractRoot& root, std::string path) : m_root(root), m_path(std::move(path)) {}
  ~OldTarget();
  OldTarget(const OldTarget&) = delete;
  OldTarget& operator=(const OldTarget&) = delete;

  // Makes the parents and the temporary file. False with message 1, 2 or 29.
  [[nodiscard]] bool Create(int* error, std::string* text);
  [[nodiscard]] CFileStream& Stream() { return m_stream; }
  // Mode and date through the descriptor, then close, then rename. False with message 4, 15, 16 or 29.
  [[nodiscard]] bool Commit(const FileInfo& info, int* error, std::string* text);

 private:
  CExtractRoot& m_root;
  std::string m_path;
  std::string m_tempPath;  // empty: nothing to remove
  CFileStream m_stream;
  std::unique_ptr<CRemoveOnSignal> m_guard;
};

// The message for a directory that could not be made: 1, or 2 when its name is too long. Reads errno.
bool DirectoryFailure(const std::string& directory, int* error, std::string* text);

}  // namespace tolven

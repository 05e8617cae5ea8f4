#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "fileio/extract_root.h"
#include "fileio/file_stream.h"
#include "fileio/run_signals.h"
#include "fileio/unique_fd.h"

namespace tolven {

// A file on its way to its name: data goes into a temporary file beside the place, which takes the name only
// when everything about it is right. Destroyed before that, or when the process is told to end, it leaves
// nothing.
class CPendingFile final : private CUndoOnSignal {
 public:
  // What failed, with errno set: callers have a message of their own for each.
  enum class Step { kNone, kParents, kTemporary, kWrite, kMode, kDate, kRename };

  // `root` must outlive the object.
  CPendingFile(CExtractRoot& root, std::string path) : m_root(root), m_path(std::move(path)) {}
  ~CPendingFile();
  CPendingFile(const CPendingFile&) = delete;
  CPendingFile& operator=(const CPendingFile&) = delete;

  // Makes the parents and the temporary file; with kParents `failed` names the directory.
  [[nodiscard]] Step Create(std::string& failed);
  CFileStream& Stream() { return m_stream; }
  const std::string& TempName() const { return m_tempName; }
  // Mode and date through the descriptor, an explicit close (a full disk may show only then), and the rename.
  [[nodiscard]] Step Commit(std::uint32_t mode, std::int64_t mtime);
  // Closes and removes the temporary file. True iff there is none any more.
  bool Discard();

 private:
  void Undo() noexcept override;

  CExtractRoot& m_root;
  std::string m_path;
  std::string m_tempName;  // empty: nothing to remove
  CFileStream m_stream;
  // Where the temporary file is, for removing it whatever has become of the way there.
  std::shared_ptr<const UniqueFd> m_directory;
  std::string m_leaf;
};

}  // namespace tolven

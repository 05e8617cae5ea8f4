#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fileio/file_place.h"
#include "fileio/run_signals.h"
#include "fileio/unique_fd.h"

namespace tolven {

// The archive that a run writes: opened without being changed, locked against other writers, and known by
// device and inode, so that whatever is undone, by the run or by a signal that ends it, touches this file and
// no other. The lock lasts until Release, which comes after the last moment at which the file may have to be
// removed. A device or a pipe is only written to: nothing is locked, cut or undone.
class COutputFile final : private CUndoOnSignal {
 public:
  COutputFile() = default;
  ~COutputFile() { Release(); }

  // Opens and locks; `flags` as open(2) has them, O_CREAT for a file that may be missing. A file that was
  // made here is removed on a signal from now on. False with errno: EWOULDBLOCK when another writer has the
  // lock.
  [[nodiscard]] bool Open(const std::string& path, int flags);
  [[nodiscard]] bool IsOpen() const { return static_cast<bool>(m_file); }
  // A descriptor of its own for writing, sharing position and lock; -1 with errno.
  [[nodiscard]] int Share() const;
  // Bytes that the file held when it was opened; 0 for a device or a pipe.
  [[nodiscard]] std::int64_t Size() const { return m_size; }

  // The old content goes. On a signal the file is removed.
  [[nodiscard]] bool Cut();
  // Everything before `from` stays; what is behind is about to be overwritten. On a signal the file becomes
  // what it was: what is behind is kept in memory.
  [[nodiscard]] bool KeepFrom(std::int64_t from);
  // Puts the file back to what it was when it was opened.
  void Restore() noexcept { Undo(); }
  // Removes the file if `path` leads to it and it is a regular one.
  bool Remove(const std::string& path) const;
  // Nothing is undone any more, and the lock is given back.
  void Release();

 private:
  enum class Attempt { kDone, kAgain, kFailed };
  void Undo() noexcept override;
  void Note();
  [[nodiscard]] Attempt TryOpen(const std::string& path, int flags);
  [[nodiscard]] Attempt TryMake(const std::string& path, int flags);
  // Locks the open file and looks whether it still is what the name stands for.
  [[nodiscard]] Attempt Lock(const std::string& path);

  UniqueFd m_file;
  CFilePlace m_place;
  FileIdentity m_identity;
  bool m_regular = false;
  bool m_removes = false;   // what undoing means: removing,
  bool m_putsBack = false;  // or putting back
  std::int64_t m_size = 0;
  std::int64_t m_keptFrom = 0;
  std::vector<unsigned char> m_kept;
};

}  // namespace tolven

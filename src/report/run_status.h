#pragma once

#include <sys/types.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tolven {

class CLogMan;

// What every floor may need to know of the run, as plain data at the bottom of the house: an exception writes
// the exit code while it is made, and a closing stream prints. The processor owns one and installs it for its
// lifetime; with none installed a default answers, so that a test can make any exception and read its code.
// Each thread has a current one of its own: whatever happens in it is written there and nowhere else.
struct RunStatus {
  int exitCode = 0;                                 // last write wins
  CLogMan* logManager = nullptr;                    // not owned; null: nothing is printed
  std::vector<std::pair<dev_t, ino_t>> files = {};  // what the run itself writes; see run_files.h
  std::set<std::pair<dev_t, ino_t>> links = {};     // what the run itself made; see extract_root.h
  bool ownsSignals = true;                          // of the process; not so for a handle of the library

  static RunStatus& Current();
};

// Installs `status` as the current one of this thread; the previous one comes back when the scope ends.
class RunStatusScope {
 public:
  explicit RunStatusScope(RunStatus& status);
  ~RunStatusScope();
  RunStatusScope(const RunStatusScope&) = delete;
  RunStatusScope& operator=(const RunStatusScope&) = delete;

 private:
  RunStatus* m_pPrevious;
};

// Prints one line through the current log manager; without one the line is lost.
void PrintLine(const std::string& line);

// The files that a run itself writes: its archive, its logs, its trace. They are known by device and inode in
// the current RunStatus, so that no run packs what it is just writing, under whatever name it meets it.

// Opens a file whose name the program chose, for writing: made (0666) or, with `flags`, as open(2) has them.
// In a directory that others may write to, such a name must not lead elsewhere: a link in its place is
// refused (ELOOP). The file counts as the run's own. -1 with errno.
[[nodiscard]] int OpenRunFile(const std::string& name, int flags);
// Counts an open file as the run's own.
void NoteRunFile(int descriptor);
// True iff the run has such a file of its own.
[[nodiscard]] bool IsRunFile(dev_t device, ino_t inode);

}  // namespace tolven

#pragma once

#include <sys/types.h>

#include <string>

namespace tolven {

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

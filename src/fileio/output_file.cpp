#include "fileio/output_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "report/run_status.h"

namespace tolven {
namespace {

constexpr mode_t kNewFileMode = 0666;
// Writers that make and remove the file all the time; nobody else gets this far.
constexpr int kOpenAttempts = 100;

// A file system without locks is no error: there is nothing to wait for.
bool HasNoLocks(int error) {
  return error == EOPNOTSUPP || error == ENOTSUP || error == ENOLCK || error == EINVAL || error == ENOSYS;
}

}  // namespace

bool COutputFile::Open(const std::string& path, int flags) {
  Release();
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    switch (TryOpen(path, flags)) {
      case Attempt::kDone:
        Note();
        return true;
      case Attempt::kFailed: {
        const int error = errno;
        Release();
        errno = error;
        return false;
      }
      case Attempt::kAgain:
        Release();
    }
  }
  errno = EBUSY;
  return false;
}

void COutputFile::Note() {
  try {
    NoteRunFile(m_file.Get());
  } catch (...) {  // no memory: a file just made goes again
    Undo();
    Release();
    throw;
  }
}

COutputFile::Attempt COutputFile::TryOpen(const std::string& path, int flags) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    // Only a name that is not there stands for a file to be made: one that cannot be looked at may well be an
    // archive.
    return errno == ENOENT && (flags & O_CREAT) != 0 ? TryMake(path, flags) : Attempt::kFailed;
  }
  // A pipe that is open for reading, too, never ends for its reader.
  const bool isSink = !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
  const int access = isSink ? O_WRONLY : flags & ~O_CREAT;
  do {
    m_file = UniqueFd(open(path.c_str(), access | O_CLOEXEC));
  } while (!m_file && errno == EINTR);
  if (!m_file) return errno == ENOENT ? Attempt::kAgain : Attempt::kFailed;
  const Attempt result = Lock(path);
  if (result == Attempt::kDone) m_place = CFilePlace(path);
  return result;
}

// Made by its resolved name: a link to a file that is missing is as good a name as any.
COutputFile::Attempt COutputFile::TryMake(const std::string& path, int flags) {
  m_place = CFilePlace(path);
  if (!m_place.IsOpen()) return Attempt::kFailed;
  const CHoldSignals hold;
  m_file = UniqueFd(m_place.Make(flags, kNewFileMode));
  if (!m_file) return errno == EEXIST ? Attempt::kAgain : Attempt::kFailed;
  // Whoever locked it in between works on it already.
  const Attempt result = Lock(path);
  if (result == Attempt::kDone) {
    m_removes = true;
    Arm();
  } else if (const int error = errno; result == Attempt::kFailed && error != EWOULDBLOCK) {
    m_place.Remove(m_identity);
    errno = error;
  }
  return result;
}

COutputFile::Attempt COutputFile::Lock(const std::string& path) {
  struct stat status {};
  if (fstat(m_file.Get(), &status) != 0) return Attempt::kFailed;
  m_identity = FileIdentity::Of(status);
  m_regular = S_ISREG(status.st_mode);
  if (m_regular) {
    while (flock(m_file.Get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno == EINTR) continue;
      if (HasNoLocks(errno)) break;
      return Attempt::kFailed;
    }
    struct stat named {};
    const bool isNamed = stat(path.c_str(), &named) == 0;
    if (!isNamed && errno != ENOENT) return Attempt::kFailed;
    // The writer that had the lock may have removed it.
    if (!isNamed || FileIdentity::Of(named) != m_identity) return Attempt::kAgain;
    // Once more: it may have written until it gave the lock back.
    if (fstat(m_file.Get(), &status) != 0) return Attempt::kFailed;
    m_size = status.st_size;
  }
  return Attempt::kDone;
}

int COutputFile::Share() const {
  return fcntl(m_file.Get(), F_DUPFD_CLOEXEC, 0);
}

bool COutputFile::Cut() {
  if (!m_regular) return true;
  m_removes = true;
  Arm();
  while (ftruncate(m_file.Get(), 0) != 0) {
    if (errno == EINTR) continue;
    Disarm();
    return false;
  }
  return true;
}

bool COutputFile::KeepFrom(std::int64_t from) {
  if (!m_regular || m_removes) return true;
  m_kept.resize(from < m_size ? static_cast<std::size_t>(m_size - from) : 0);
  m_keptFrom = from;
  for (std::size_t done = 0; done < m_kept.size();) {
    const ssize_t count = pread(m_file.Get(), m_kept.data() + done, m_kept.size() - done,
                                from + static_cast<std::int64_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) errno = EIO;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  m_putsBack = true;
  Arm();
  return true;
}

void COutputFile::Undo() noexcept {
  if (m_removes) m_place.Remove(m_identity);
  if (m_removes || !m_putsBack) return;
  for (std::size_t done = 0; done < m_kept.size();) {
    const ssize_t count = pwrite(m_file.Get(), m_kept.data() + done, m_kept.size() - done,
                                 m_keptFrom + static_cast<std::int64_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  while (ftruncate(m_file.Get(), m_size) != 0 && errno == EINTR) {
  }
}

bool COutputFile::Remove(const std::string& path) const {
  return m_file && m_regular && CFilePlace(path).Remove(m_identity);
}

void COutputFile::Release() {
  Disarm();
  m_file = UniqueFd();
  m_place = CFilePlace();
  m_kept.clear();
  m_regular = m_removes = m_putsBack = false;
  m_size = 0;
}

}  // namespace tolven

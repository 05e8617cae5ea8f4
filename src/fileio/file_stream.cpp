#include "fileio/file_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "report/run_status.h"
#include "report/system_error.h"

namespace tolven {
namespace {

// An archive being written receives headers of some 50 bytes and blocks of up to 64 KiB: with room for one
// block, small entries share a system call. What is read ahead stays small: a walk over an archive seeks from
// header to header, and every seek out of the buffer fills it anew.
constexpr std::size_t kWriteBufferSize = 64 * 1024;
constexpr std::size_t kReadBufferSize = 4 * 1024;
// As long as the walk goes on in small steps, each filling is twice the one before, up to this.
constexpr std::size_t kMaxReadBufferSize = 16 * 1024;

struct ModeRow {
  unsigned int flag;
  int openFlags;
  std::size_t writeRoom;
};
constexpr std::array kModes = {
    ModeRow{kOpenAppend, O_WRONLY | O_CREAT | O_APPEND, kWriteBufferSize},
    ModeRow{kOpenCreate, O_WRONLY | O_CREAT | O_TRUNC, kWriteBufferSize},
    ModeRow{kOpenRead, O_RDONLY, 0},
    ModeRow{kOpenReadWrite, O_RDWR, kWriteBufferSize},
};
constexpr mode_t kNewFileMode = 0666;

static_assert(sizeof(long) == 8 && sizeof(off_t) == 8, "positions are 64-bit");

template <typename Call>
auto Repeat(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

CFileStream::CFileStream() : m_readAhead(kReadBufferSize) {}

CFileStream::CFileStream(const std::string& name, unsigned int mode) : CFileStream() {
  CFileStream::Open(name, mode, 0);
}

CFileStream::~CFileStream() {
  if (IsAttached() && !CFileStream::Close())
    PrintLine("TOLVEN: error closing file! " + SystemErrorText({m_lastError}));
}

bool CFileStream::Fail() {
  m_lastError = errno;
  return false;
}

void CFileStream::Forget() {
  m_readAt = m_readEnd = m_pending = 0;
  m_position = 0;
  m_ended = false;
}

void CFileStream::Open(const std::string& name, unsigned int mode, unsigned int /*share*/) {
  m_file = UniqueFd();
  m_source.reset();
  Forget();
  for (const ModeRow& row : kModes) {
    if ((mode & row.flag) == 0) continue;
    // A child of an embedding program must not inherit the archive.
    const int flags = row.openFlags | O_CLOEXEC;
    m_file = UniqueFd(Repeat([&] { return open(name.c_str(), flags, kNewFileMode); }));
    if (!m_file) {
      Fail();
      return;
    }
    m_writeRoom = row.writeRoom;
    if ((flags & O_APPEND) != 0) m_position = std::max<off_t>(lseek(m_file.Get(), 0, SEEK_END), 0);
    return;
  }
  errno = EINVAL;
  Fail();
}

bool CFileStream::Open() const {
  return IsAttached();
}

bool CFileStream::Attach(int descriptor, Writes writes) {
  Forget();
  m_file = UniqueFd(descriptor);
  if (!m_file) {
    errno = EBADF;
    return Fail();
  }
  m_writeRoom = writes == Writes::kBuffered ? kWriteBufferSize : 0;
  // A pipe has no position; it is counted from here.
  m_position = std::max<off_t>(lseek(descriptor, 0, SEEK_CUR), 0);
  return true;
}

bool CFileStream::AttachNew(int descriptor) {
  Forget();
  m_file = UniqueFd(descriptor);
  m_writeRoom = 0;
  if (m_file) return true;
  errno = EBADF;
  return Fail();
}

void CFileStream::Attach(std::shared_ptr<IByteSource> source, Writes writes) {
  Forget();
  m_file = UniqueFd();
  m_source = std::move(source);
  m_writeRoom = writes == Writes::kBuffered ? kWriteBufferSize : 0;
}

ssize_t CFileStream::RawRead(unsigned char* to, std::size_t count) {
  return Repeat(
      [&] { return m_source ? m_source->ReadAt(to, count, m_position) : read(m_file.Get(), to, count); });
}

ssize_t CFileStream::RawWrite(const unsigned char* from, std::size_t count) {
  return Repeat([&] {
    return m_source ? m_source->WriteAt(from, count, m_position) : write(m_file.Get(), from, count);
  });
}

off_t CFileStream::RawSeek(long offset, int whence) {
  if (!m_source) return lseek(m_file.Get(), offset, whence);
  std::int64_t from = whence == SEEK_CUR ? m_position : 0;
  if (whence == SEEK_END && (from = m_source->Size()) < 0) return -1;
  std::int64_t position = 0;
  if (!__builtin_add_overflow(from, offset, &position) && position >= 0) return position;
  errno = EINVAL;
  return -1;
}

bool CFileStream::Reserve(std::size_t size) {
  if (m_capacity >= size) return true;
  m_buffer.reset(new (std::nothrow) unsigned char[size]);
  m_capacity = m_buffer == nullptr ? 0 : size;
  if (m_buffer != nullptr) return true;
  errno = ENOMEM;
  return false;
}

bool CFileStream::TurnToReading() {
  return Drain();
}

// What was read ahead is not where the writer stands.
bool CFileStream::TurnToWriting() {
  m_ended = false;
  const long ahead = static_cast<long>(m_readEnd - m_readAt);
  m_readAt = m_readEnd = 0;
  if (ahead == 0) return true;
  if (RawSeek(m_position - ahead, SEEK_SET) < 0) return false;
  m_position -= ahead;
  return true;
}

bool CFileStream::Fill(std::size_t& got) {
  got = 0;
  if (!Reserve(m_readAhead)) return false;
  const ssize_t count = RawRead(m_buffer.get(), m_readAhead);
  if (count < 0) return false;
  m_readAhead = std::min(2 * m_readAhead, kMaxReadBufferSize);
  got = static_cast<std::size_t>(count);
  m_readAt = 0;
  m_readEnd = got;
  m_position += count;
  return true;
}

bool CFileStream::Read(unsigned char* buf, unsigned long n, unsigned long* done) {
  *done = 0;
  if (!IsAttached()) {
    errno = EBADF;
    return Fail();
  }
  if (!TurnToReading()) return Fail();
  while (*done < n) {
    const std::size_t wanted = n - *done;
    if (m_readAt < m_readEnd) {
      const std::size_t count = std::min(wanted, m_readEnd - m_readAt);
      std::memcpy(buf + *done, m_buffer.get() + m_readAt, count);
      m_readAt += count;
      *done += count;
      continue;
    }
    if (m_ended) return true;
    std::size_t got = 0;
    if (wanted >= m_readAhead) {
      m_readAt = m_readEnd = 0;
      const ssize_t count = RawRead(buf + *done, wanted);
      if (count < 0) return Fail();
      got = static_cast<std::size_t>(count);
      m_position += count;
      *done += got;
    } else if (!Fill(got)) {
      return Fail();
    }
    m_ended = got == 0;
  }
  return true;
}

std::size_t CFileStream::Put(const unsigned char* from, std::size_t n) {
  std::size_t done = 0;
  while (done < n) {
    const ssize_t count = RawWrite(from + done, n - done);
    if (count == 0) errno = EIO;  // no progress, and no reason given
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
    m_position += count;
  }
  return done;
}

bool CFileStream::Write(const unsigned char* buf, unsigned long n, unsigned long* done) {
  *done = 0;
  if (!IsAttached()) {
    errno = EBADF;
    return false;
  }
  if (n == 0) return true;
  if (!TurnToWriting()) return false;
  if (n > m_writeRoom - m_pending && !Drain()) return false;
  if (n > m_writeRoom) {
    *done = Put(buf, n);
    return *done == n;
  }
  if (!Reserve(m_writeRoom)) return false;
  std::memcpy(m_buffer.get() + m_pending, buf, n);
  m_pending += n;
  *done = n;
  return true;
}

bool CFileStream::Drain() {
  const std::size_t pending = std::exchange(m_pending, 0);
  return pending == 0 || Put(m_buffer.get(), pending) == pending;
}

bool CFileStream::Flush() {
  return IsAttached() && (Drain() || Fail());
}

void CFileStream::Abandon() {
  m_file = UniqueFd();
  m_source.reset();
  Forget();
}

bool CFileStream::Close() {
  if (!IsAttached()) return Fail();
  const bool flushed = Flush();
  const int error = errno;
  const bool closed = m_source || close(m_file.Release()) == 0 || errno == EINTR;
  m_source.reset();
  Forget();
  if (!flushed) errno = error;
  return (flushed && closed) || Fail();
}

bool CFileStream::GetPos(long* pos) {
  if (!IsAttached()) return false;
  if (pos != nullptr) {
    *pos = m_position - static_cast<long>(m_readEnd - m_readAt) + static_cast<long>(m_pending);
  }
  return true;
}

bool CFileStream::Seek(long offset, int whence) {
  if (!IsAttached()) return false;
  const long ahead = static_cast<long>(m_readEnd - m_readAt);
  // From one header to the next is often a step within what was read ahead.
  const long target = whence == SEEK_CUR ? offset : offset - (m_position - ahead);
  if (whence != SEEK_END && -static_cast<long>(m_readAt) <= target && target <= ahead && m_readEnd > 0) {
    m_readAt = static_cast<std::size_t>(static_cast<long>(m_readAt) + target);
    m_ended = false;
    return true;
  }
  if (target < 0 || target - ahead > static_cast<long>(m_readAhead)) m_readAhead = kReadBufferSize;
  if (!Drain()) return Fail();
  if (whence == SEEK_CUR && __builtin_sub_overflow(offset, ahead, &offset)) {
    errno = EINVAL;
    return Fail();
  }
  const off_t position = RawSeek(offset, whence);
  if (position < 0) return Fail();
  Forget();
  m_position = position;
  return true;
}

bool CFileStream::SetPos(long pos) {
  return Seek(pos, SEEK_SET);
}

bool CFileStream::MoveFlPtr(long offset) {
  return Seek(offset, SEEK_CUR);
}

bool CFileStream::MoveToEnd() {
  return Seek(0, SEEK_END);
}

bool CFileStream::Truncate() {
  // What is still buffered belongs in front of the cut.
  long position = 0;
  if (!Flush() || !GetPos(&position)) return false;
  return Repeat([&] { return ftruncate(m_file.Get(), position); }) == 0 || Fail();
}

bool CFileStream::BckpRead(unsigned char* /*buf*/, unsigned long /*n*/, unsigned long* /*done*/) {
  return false;
}

bool CFileStream::BckpWrite(unsigned char* /*buf*/, unsigned long /*n*/, unsigned long* /*done*/) {
  return false;
}

bool CFileStream::BckpDone() {
  return false;
}

}  // namespace tolven

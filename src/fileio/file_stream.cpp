#include "fileio/file_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

#include "report/run_status.h"
#include "report/system_error.h"

namespace tolven {
namespace {

// An archive being written receives headers of some 50 bytes and blocks of up to 64 KiB: with room for one
// block, small entries share a system call. Files opened for reading keep the library's own small buffer: a
// create opens thousands of them, and a seek over a block refills the whole buffer.
constexpr std::size_t kWriteBufferSize = 64 * 1024;

// "e": a child of an embedding program must not inherit the archive.
struct ModeRow {
  unsigned int flag;
  const char* mode;
  bool largeBuffer;
};
constexpr std::array kModes = {
    ModeRow{kOpenAppend, "ae", true},
    ModeRow{kOpenCreate, "we", true},
    ModeRow{kOpenRead, "re", false},
    ModeRow{kOpenReadWrite, "r+e", false},
};

static_assert(sizeof(long) == 8 && sizeof(off_t) == 8, "positions are 64-bit");

}  // namespace

CFileStream::CFileStream(const std::string& name, unsigned int mode) {
  CFileStream::Open(name, mode, 0);
}

CFileStream::~CFileStream() {
  if (m_file == nullptr) return;
  if (std::fclose(m_file.release()) != 0) PrintLine("TOLVEN: error closing file! " + SystemErrorText());
}

void CFileStream::Open(const std::string& name, unsigned int mode, unsigned int /*share*/) {
  m_file.reset();
  m_direction = Direction::kNone;
  for (const ModeRow& row : kModes) {
    if ((mode & row.flag) == 0) continue;
    m_file.reset(std::fopen(name.c_str(), row.mode));
    if (m_file == nullptr) {
      m_lastError = errno;
    } else if (row.largeBuffer) {
      if (m_buffer == nullptr) m_buffer = std::make_unique<char[]>(kWriteBufferSize);
      std::setvbuf(m_file.get(), m_buffer.get(), _IOFBF, kWriteBufferSize);
    }
    return;
  }
  errno = EINVAL;
  m_lastError = EINVAL;
}

bool CFileStream::Open() const {
  return m_file != nullptr;
}

bool CFileStream::Attach(int descriptor, unsigned int mode) {
  const bool reading = mode == kOpenRead;
  m_file.reset(fdopen(descriptor, reading ? "r" : "w"));
  m_direction = Direction::kNone;
  if (m_file == nullptr) {
    m_lastError = errno;
    if (descriptor >= 0) close(descriptor);
    errno = m_lastError;
    return false;
  }
  if (!reading) std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
  return true;
}

int CFileStream::Descriptor() const {
  return m_file == nullptr ? -1 : fileno(m_file.get());
}

void CFileStream::Turn(Direction direction) {
  if (m_direction != Direction::kNone && m_direction != direction) std::fseek(m_file.get(), 0, SEEK_CUR);
  m_direction = direction;
}

bool CFileStream::Read(unsigned char* buf, unsigned long n, unsigned long* done) {
  *done = 0;
  if (m_file == nullptr) {
    errno = m_lastError = EBADF;
    return false;
  }
  Turn(Direction::kRead);
  *done = std::fread(buf, 1, n, m_file.get());
  if (*done == n || std::ferror(m_file.get()) == 0) return true;
  m_lastError = errno;
  return false;
}

bool CFileStream::Write(unsigned char* buf, unsigned long n, unsigned long* done) {
  *done = 0;
  if (m_file == nullptr) {
    errno = EBADF;
    return false;
  }
  Turn(Direction::kWrite);
  *done = std::fwrite(buf, 1, n, m_file.get());
  return *done == n;
}

bool CFileStream::Flush() {
  if (m_file == nullptr) return false;
  if (std::fflush(m_file.get()) == 0) return true;
  m_lastError = errno;
  return false;
}

bool CFileStream::Close() {
  if (m_file != nullptr && std::fclose(m_file.release()) == 0) return true;
  m_lastError = errno;
  return false;
}

bool CFileStream::GetPos(long* pos) {
  if (m_file == nullptr) return false;
  const off_t position = ftello(m_file.get());
  if (position < 0) return false;
  if (pos != nullptr) *pos = position;
  return true;
}

bool CFileStream::Seek(long offset, int whence) {
  if (m_file == nullptr) return false;
  m_direction = Direction::kNone;
  if (fseeko(m_file.get(), offset, whence) == 0) return true;
  m_lastError = errno;
  return false;
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
  long position = 0;
  // What is still buffered belongs in front of the cut.
  if (!Flush() || !GetPos(&position)) return false;
  if (ftruncate(fileno(m_file.get()), position) == 0) return true;
  m_lastError = errno;
  return false;
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

#include "library/source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "report/except.h"

namespace tolven {

namespace {

// More than a count of a call can be is no count.
ssize_t Count(std::int64_t result, std::size_t most) {
  if (result >= 0 && static_cast<std::uint64_t>(result) <= most) return static_cast<ssize_t>(result);
  constexpr std::int64_t kLargestError = 4095;
  errno = result < 0 && result >= -kLargestError ? static_cast<int>(-result) : EIO;
  return -1;
}

}  // namespace

std::shared_ptr<CSource> CSource::ForReading(CHandle& handle, UniqueFd file) {
  struct stat status {};
  if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw LibraryError{TOLVEN_E_ARGUMENT, "the archive is not a regular file"};
  }
  auto source = std::make_shared<CSource>(handle, std::move(file));
  source->m_size = status.st_size;
  return source;
}

std::int64_t CSource::Seek(std::int64_t offset, int whence) {
  const std::int64_t position = m_callbacks.seek(m_callbacks.context, offset, whence);
  if (position < 0) return Count(position, 0);
  return position;
}

std::int64_t CSource::Size() {
  if (m_file) return m_size;
  const std::lock_guard lock(m_lock);
  if (m_callbacks.seek == nullptr) return 0;
  m_size = Seek(0, SEEK_END);
  return m_size;
}

ssize_t CSource::RawRead(void* to, std::size_t count, std::int64_t position) {
  if (m_file) return pread(m_file.Get(), to, count, position);
  const std::lock_guard lock(m_lock);
  if (Seek(position, SEEK_SET) != position) {
    if (errno == 0) errno = EIO;
    return -1;
  }
  return Count(m_callbacks.read(m_callbacks.context, to, count), count);
}

ssize_t CSource::ReadAt(void* to, std::size_t count, std::int64_t position) {
  if (!m_handle.Advance(position, m_size)) {
    errno = ECANCELED;
    return -1;
  }
  return RawRead(to, count, position);
}

ssize_t CSource::WriteAt(const void* from, std::size_t count, std::int64_t position) {
  if (!m_handle.Advance(position, 0)) {
    errno = ECANCELED;
    return -1;
  }
  if (m_file) return write(m_file.Get(), from, count);
  return Count(m_callbacks.write(m_callbacks.context, from, count), count);
}

void CSource::ReadExactly(void* to, std::size_t count, std::int64_t position, const std::string& name) {
  auto* bytes = static_cast<unsigned char*>(to);
  for (std::size_t done = 0; done < count;) {
    const ssize_t got = m_handle.IsCancelled()
                            ? -1
                            : RawRead(bytes + done, count - done, position + static_cast<std::int64_t>(done));
    if (got < 0 && errno == EINTR && !m_handle.IsCancelled()) continue;
    if (got <= 0) throw CReadExcept(name);
    done += static_cast<std::size_t>(got);
  }
}

}  // namespace tolven

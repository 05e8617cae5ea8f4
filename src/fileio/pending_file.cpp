#include "fileio/pending_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>

namespace tolven {

CPendingFile::~CPendingFile() {
  Discard();
}

CPendingFile::Step CPendingFile::Create(std::string& failed) {
  errno = 0;
  if (!m_root.MakeParents(m_path, failed)) return Step::kParents;
  errno = 0;
  const CHoldSignals hold;
  UniqueFd descriptor = m_root.CreateTemp(m_path, m_tempName);
  if (!descriptor) {
    m_tempName.clear();
    return Step::kTemporary;
  }
  m_guard.emplace(m_tempName);
  return m_stream.Attach(descriptor.Release()) ? Step::kNone : Step::kTemporary;
}

CPendingFile::Step CPendingFile::Commit(std::uint32_t mode, std::int64_t mtime) {
  errno = 0;
  if (!m_stream.Flush()) return Step::kWrite;
  if (fchmod(m_stream.Descriptor(), mode) != 0) return Step::kMode;
  const timespec when{.tv_sec = static_cast<std::time_t>(mtime), .tv_nsec = 0};
  const timespec accessAndModification[2] = {when, when};
  if (futimens(m_stream.Descriptor(), accessAndModification) != 0) return Step::kDate;
  if (!m_stream.Close()) return Step::kWrite;
  if (!m_root.Rename(m_tempName, m_path)) return Step::kRename;
  m_tempName.clear();
  m_guard.reset();
  return Step::kNone;
}

bool CPendingFile::Discard() {
  if (m_stream.Open()) m_stream.Close();
  if (m_tempName.empty()) return true;
  const int error = errno;
  const bool removed = m_root.Remove(m_tempName);
  if (removed) errno = error;
  m_tempName.clear();
  m_guard.reset();
  return removed;
}

}  // namespace tolven

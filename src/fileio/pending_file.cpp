#include "fileio/pending_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

namespace tolven {

CPendingFile::~CPendingFile() {
  Discard();
}

CPendingFile::Step CPendingFile::Create(std::string& failed) {
  if (!m_root.MakeParents(m_path, failed)) return Step::kParents;
  m_directory = m_root.ShareParent(m_path);
  if (m_directory == nullptr) return Step::kTemporary;
  m_leaf.reserve(NAME_MAX + 1);  // nothing may fail between making the file and arming
  const CHoldSignals hold;
  UniqueFd descriptor = m_root.CreateTemp(m_path, m_tempName);
  if (!descriptor) {
    m_tempName.clear();
    return Step::kTemporary;
  }
  m_leaf.assign(m_tempName, m_tempName.rfind('/') + 1);
  Arm();
  return m_stream.AttachNew(descriptor.Release()) ? Step::kNone : Step::kTemporary;
}

CPendingFile::Step CPendingFile::Commit(std::uint32_t mode, std::int64_t mtime) {
  if (!m_stream.Flush()) return Step::kWrite;
  if (fchmod(m_stream.Descriptor(), mode) != 0) return Step::kMode;
  const timespec when{.tv_sec = static_cast<std::time_t>(mtime), .tv_nsec = 0};
  const timespec accessAndModification[2] = {when, when};
  if (futimens(m_stream.Descriptor(), accessAndModification) != 0) return Step::kDate;
  if (!m_stream.Close()) return Step::kWrite;
  if (!m_root.Rename(m_tempName, m_path)) return Step::kRename;
  Disarm();
  m_tempName.clear();
  return Step::kNone;
}

bool CPendingFile::Discard() {
  m_stream.Abandon();
  if (m_tempName.empty()) return true;
  const int error = errno;
  const bool removed = unlinkat(m_directory->Get(), m_leaf.c_str(), 0) == 0;
  if (removed) errno = error;
  Disarm();
  m_tempName.clear();
  return removed;
}

void CPendingFile::Undo() noexcept {
  unlinkat(m_directory->Get(), m_leaf.c_str(), 0);
}

}  // namespace tolven

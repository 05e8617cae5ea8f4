#include "oldarchive/old_target.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <ctime>

#include "oldarchive/old_messages.h"

namespace tolven {

OldTarget::~OldTarget() {
  if (m_tempPath.empty()) return;
  if (m_stream.Open()) m_stream.Close();
  // Somebody else may have removed it; there is nothing left to do then.
  static_cast<void>(m_root.Remove(m_tempPath));
}

bool OldTarget::Create(int* error, std::string* text) {
  errno = 0;
  std::string failed;
  if (!m_root.MakeParents(m_path, failed)) return DirectoryFailure(failed, error, text);
  UniqueFd descriptor = m_root.CreateTemp(m_path, m_tempPath);
  if (!descriptor) {
    m_tempPath.clear();
    return SetErrorMessage(error, text, OLD_OPEN_TARGET, m_path);
  }
  m_guard = std::make_unique<CRemoveOnSignal>(m_tempPath);
  if (!m_stream.Attach(descriptor.Release())) return SetErrorMessage(error, text, OLD_OPEN_TARGET, m_path);
  return true;
}

bool OldTarget::Commit(const FileInfo& info, int* error, std::string* text) {
  errno = 0;
  if (!m_stream.Flush()) return SetErrorMessage(error, text, OLD_SYSTEM, m_path);
  const int descriptor = m_stream.Descriptor();
  if (fchmod(descriptor, info.mode & kOldModePermissions) != 0) {
    return SetErrorMessage(error, text, OLD_FILE_MODE, m_path);
  }
  const timespec time{.tv_sec = static_cast<std::time_t>(info.mtime), .tv_nsec = 0};
  const std::array<timespec, 2> accessAndModification = {time, time};
  if (futimens(descriptor, accessAndModification.data()) != 0) {
    return SetErrorMessage(error, text, OLD_FILE_DATE, m_path);
  }
  // A full disk may show only now.
  if (!m_stream.Close()) return SetErrorMessage(error, text, OLD_SYSTEM, m_path);
  if (!m_root.Rename(m_tempPath, m_path)) return SetErrorMessage(error, text, OLD_OPEN_TARGET, m_path);
  m_tempPath.clear();
  return true;
}

bool DirectoryFailure(const std::string& directory, int* error, std::string* text) {
  const int code = errno == ENAMETOOLONG ? OLD_DIR_TOO_LONG : OLD_MKDIR;
  return SetErrorMessage(error, text, code, directory);
}

}  // namespace tolven

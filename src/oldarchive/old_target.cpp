#include "oldarchive/old_target.h"

#include <cerrno>

#include "oldarchive/old_messages.h"

namespace tolven {

bool CreateTarget(CPendingFile& file, const std::string& path, int* error, std::string* text) {
  std::string failed;
  switch (file.Create(failed)) {
    case CPendingFile::Step::kNone:
      return true;
    case CPendingFile::Step::kParents:
      return DirectoryFailure(failed, error, text);
    default:
      return SetErrorMessage(error, text, OLD_OPEN_TARGET, path);
  }
}

bool CommitTarget(CPendingFile& file, const FileInfo& info, const std::string& path, int* error,
                  std::string* text) {
  switch (file.Commit(info.mode & kOldModePermissions, info.mtime)) {
    case CPendingFile::Step::kNone:
      return true;
    case CPendingFile::Step::kMode:
      return SetErrorMessage(error, text, OLD_FILE_MODE, path);
    case CPendingFile::Step::kDate:
      return SetErrorMessage(error, text, OLD_FILE_DATE, path);
    case CPendingFile::Step::kRename:
      return SetErrorMessage(error, text, OLD_OPEN_TARGET, path);
    default:
      return SetErrorMessage(error, text, OLD_SYSTEM, path);
  }
}

bool DirectoryFailure(const std::string& directory, int* error, std::string* text) {
  const int code = errno == ENAMETOOLONG ? OLD_DIR_TOO_LONG : OLD_MKDIR;
  return SetErrorMessage(error, text, code, directory);
}

}  // namespace tolven

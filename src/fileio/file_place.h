#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "fileio/unique_fd.h"

namespace tolven {

// What tells two names of one file.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;

  static FileIdentity Of(const struct stat& status) { return {status.st_dev, status.st_ino}; }
  bool operator==(const FileIdentity&) const = default;
};

// Where a name leads: the directory, by descriptor, and the name in it that is no link. It stays that place
// when the working directory changes, and can be used in a signal handler.
class CFilePlace {
 public:
  CFilePlace() = default;
  // Follows links, also to a file that is missing. Not open, with errno, when there is no way there.
  explicit CFilePlace(const std::string& path);
  [[nodiscard]] bool IsOpen() const { return static_cast<bool>(m_directory); }

  // Makes the file there; -1 with EEXIST when somebody was faster.
  [[nodiscard]] int Make(int flags, mode_t mode) const;
  // Removes the file if it is a regular one and the one meant; false otherwise. Safe in a signal handler.
  bool Remove(const FileIdentity& identity) const noexcept;

 private:
  UniqueFd m_directory;
  std::string m_name;
};

}  // namespace tolven

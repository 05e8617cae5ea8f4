#include "report/run_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "report/run_status.h"

namespace tolven {

int OpenRunFile(const std::string& name, int flags) {
  const int descriptor = open(name.c_str(), flags | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (descriptor >= 0) NoteRunFile(descriptor);
  return descriptor;
}

void NoteRunFile(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || IsRunFile(status.st_dev, status.st_ino)) return;
  RunStatus::Current().files.emplace_back(status.st_dev, status.st_ino);
}

bool IsRunFile(dev_t device, ino_t inode) {
  const auto& files = RunStatus::Current().files;
  return std::find(files.begin(), files.end(), std::pair(device, inode)) != files.end();
}

}  // namespace tolven

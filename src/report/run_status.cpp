#include "report/run_status.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "report/log_man.h"

namespace tolven {
namespace {

// Answers while no processor has installed its own status.
RunStatus& DefaultStatus() {
  static RunStatus status;
  return status;
}

// A thread's own: handles of the library work in many threads, each for itself.
thread_local RunStatus* t_pCurrent = nullptr;

}  // namespace

RunStatus& RunStatus::Current() {
  return t_pCurrent == nullptr ? DefaultStatus() : *t_pCurrent;
}

RunStatusScope::RunStatusScope(RunStatus& status) : m_pPrevious(t_pCurrent) {
  t_pCurrent = &status;
}

RunStatusScope::~RunStatusScope() {
  t_pCurrent = m_pPrevious;
}

void PrintLine(const std::string& line) {
  CLogMan* logManager = RunStatus::Current().logManager;
  if (logManager != nullptr) logManager->PrintString(line);
}

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

#include "report/run_status.h"

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

}  // namespace tolven

#include "report/run_status.h"

#include "report/log_man.h"

namespace tolven {
namespace {

// Answers while no processor has installed its own status.
RunStatus& DefaultStatus() {
  static RunStatus status;
  return status;
}

RunStatus* g_pCurrent = nullptr;

}  // namespace

RunStatus& RunStatus::Current() {
  return g_pCurrent == nullptr ? DefaultStatus() : *g_pCurrent;
}

RunStatusScope::RunStatusScope(RunStatus& status) : m_pPrevious(g_pCurrent) {
  g_pCurrent = &status;
}

RunStatusScope::~RunStatusScope() {
  g_pCurrent = m_pPrevious;
}

void PrintLine(const std::string& line) {
  CLogMan* logManager = RunStatus::Current().logManager;
  if (logManager != nullptr) logManager->PrintString(line);
}

}  // namespace tolven

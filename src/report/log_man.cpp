#include "report/log_man.h"

#include <cstddef>
#include <cstdio>
#include <utility>

namespace tolven {

bool CLogMan::IsValidHandle(std::int32_t handle) const {
  return handle >= 0 && static_cast<std::size_t>(handle) < m_logFiles.size();
}

std::int32_t CLogMan::OpenLogFile(const std::string& name) {
  std::ofstream stream(name, std::ios::out | std::ios::trunc);
  if (!stream) return -1;
  m_logFiles.push_back({std::move(stream), name});
  return m_nLogFiles++;
}

int CLogMan::WriteToLog(std::int32_t handle, const std::string& text) {
  if (!IsValidHandle(handle)) return 0;
  m_logFiles[static_cast<std::size_t>(handle)].stream << text << std::endl;
  return 1;
}

bool CLogMan::DeleteLogFile(std::int32_t handle) {
  if (!IsValidHandle(handle)) return false;
  LogFile& file = m_logFiles[static_cast<std::size_t>(handle)];
  file.stream.close();  // sets failbit itself when closing fails
  return std::remove(file.name.c_str()) == 0;
}

void CConsoleLogMan::PrintString(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void CConsoleLogMan::PrintInfo(const CUserInfo& info) {
  PrintString(info.GetInfoText());
}

void CAPILogMan::PrintString(const std::string& text) {
  m_output += text;
  m_output += '\n';
}

void CAPILogMan::PrintInfo(const CUserInfo& info) {
  PrintString(info.GetInfoText());
}

}  // namespace tolven

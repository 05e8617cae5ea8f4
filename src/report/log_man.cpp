#include "report/log_man.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <utility>

#include "report/run_files.h"

namespace tolven {

bool CLogMan::IsValidHandle(std::int32_t handle) const {
  return handle >= 0 && static_cast<std::size_t>(handle) < m_logFiles.size();
}

std::int32_t CLogMan::OpenLogFile(const std::string& name) {
  const int descriptor = OpenRunFile(name, O_WRONLY | O_TRUNC);
  if (descriptor < 0) return -1;
  LogFile file;
  file.stream.reset(fdopen(descriptor, "w"));
  if (file.stream == nullptr) {
    close(descriptor);
    return -1;
  }
  file.name = name;
  m_logFiles.push_back(std::move(file));
  return m_nLogFiles++;
}

int CLogMan::WriteToLog(std::int32_t handle, const std::string& text) {
  if (!IsValidHandle(handle)) return 0;
  std::FILE* stream = m_logFiles[static_cast<std::size_t>(handle)].stream.get();
  std::fputs((text + "\n").c_str(), stream);
  std::fflush(stream);
  return 1;
}

bool CLogMan::DeleteLogFile(std::int32_t handle) {
  if (!IsValidHandle(handle)) return false;
  LogFile& file = m_logFiles[static_cast<std::size_t>(handle)];
  file.stream.reset();
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

#include "report/log_man.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "report/error_numbers.h"
#include "report/line_output.h"
#include "report/run_status.h"

namespace tolven {
namespace {

constexpr const char* kStandardOutput = "standard output";
constexpr std::size_t kHeldSize = std::size_t{16} << 10;  // of lines that wait for company

}  // namespace

struct CLogMan::LogFile {
  ~LogFile() {
    if (descriptor >= 0) close(descriptor);
  }
  std::string name;
  int descriptor = -1;
};

CLogMan::CLogMan() = default;
CLogMan::~CLogMan() = default;

CLogMan::LogFile* CLogMan::FindLogFile(std::int32_t handle) const {
  const bool valid = handle >= 0 && static_cast<std::size_t>(handle) < m_logFiles.size();
  return valid ? m_logFiles[static_cast<std::size_t>(handle)].get() : nullptr;
}

std::int32_t CLogMan::OpenLogFile(const std::string& name) {
  auto file = std::make_unique<LogFile>();
  file->name = name;
  m_logFiles.reserve(m_logFiles.size() + 1);  // nothing fails once the file is there
  file->descriptor = OpenRunFile(name, O_WRONLY | O_TRUNC);
  if (file->descriptor < 0) return -1;
  m_logFiles.push_back(std::move(file));
  return static_cast<std::int32_t>(m_logFiles.size() - 1);
}

int CLogMan::WriteToLog(std::int32_t handle, const std::string& text) {
  const LogFile* file = FindLogFile(handle);
  if (file == nullptr || file->descriptor < 0) return 0;
  NoteFailure(file->name.c_str(), WriteLine(file->descriptor, text));
  return 1;
}

bool CLogMan::DeleteLogFile(std::int32_t handle) {
  LogFile* file = FindLogFile(handle);
  if (file == nullptr) return false;
  CloseLogFile(*file);
  return std::remove(file->name.c_str()) == 0;
}

void CLogMan::CloseLogFile(LogFile& file) noexcept {
  if (file.descriptor < 0) return;
  // Interrupted is closed.
  if (close(file.descriptor) != 0 && errno != EINTR) NoteFailure(file.name.c_str(), errno);
  file.descriptor = -1;
}

void CLogMan::NoteFailure(const char* name, int error) noexcept {
  if (error == 0 || m_failedError != 0) return;
  m_failedName = name;
  m_failedError = error;
}

int CLogMan::Finish(int exitCode) noexcept {
  for (const auto& file : m_logFiles) CloseLogFile(*file);
  Flush();
  if (m_failedError == 0) return exitCode;
  // Put together without memory, which may be what is missing; both names are short.
  std::array<char, 256> line{};
  std::snprintf(line.data(), line.size(), "TOLVEN: error writing to %s (error %d). %s", m_failedName,
                kErrorWrite, std::strerror(m_failedError));
  static_cast<void>(WriteLine(STDERR_FILENO, line.data()));
  return exitCode == 0 ? kErrorWrite : exitCode;
}

CConsoleLogMan::CConsoleLogMan() {
  OutputMoved(nullptr);
}

void CConsoleLogMan::OutputMoved(const char* name) noexcept {
  const int before = errno;
  m_name = name == nullptr ? kStandardOutput : name;
  m_isTerminal = isatty(STDOUT_FILENO) == 1;
  errno = before;
}

void CConsoleLogMan::PrintLiteral(const char* text) noexcept {
  WriteHeld();
  NoteFailure(m_name, WriteLine(STDOUT_FILENO, text));
}

void CConsoleLogMan::WriteHeld() noexcept {
  if (m_held.empty()) return;
  const std::string_view lines = m_held;
  NoteFailure(m_name, WriteLine(STDOUT_FILENO, lines.substr(0, lines.size() - 1)));
  m_held.clear();
}

void CConsoleLogMan::PrintString(const std::string& text) {
  PrintLiteral(text.c_str());
}

void CConsoleLogMan::PrintInfo(const CUserInfo& info) {
  const std::string text = info.GetInfoText();
  if (m_isTerminal) {
    PrintString(text);
    return;
  }
  const std::size_t before = m_held.size();
  try {
    m_held += text.c_str();
    m_held += '\n';
  } catch (const std::bad_alloc&) {
    m_held.resize(before);
    throw;
  }
  if (m_held.size() >= kHeldSize) WriteHeld();
}

void CConsoleLogMan::Flush() noexcept {
  WriteHeld();
  NoteFailure(m_name, FlushDescriptor(STDOUT_FILENO));
}

void CAPILogMan::PrintString(const std::string& text) {
  m_output += text;
  m_output += '\n';
}

void CAPILogMan::PrintInfo(const CUserInfo& info) {
  PrintString(info.GetInfoText());
}

void CAPILogMan::PrintLiteral(const char* text) noexcept {
  try {
    PrintString(text);
  } catch (const std::bad_alloc&) {
    // The exit code says the same.
  }
}

}  // namespace tolven

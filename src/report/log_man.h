#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "report/user_info.h"

namespace tolven {

// The one way out for text. Also keeps the log files of a run ("tolven.log", "files.log").
class CLogMan {
 public:
  virtual void PrintString(const std::string& text) = 0;
  virtual void PrintInfo(const CUserInfo& info) = 0;
  virtual ~CLogMan() = default;

  // Creates or truncates `name`, never through a link, and returns its handle, counted from 0; -1 when it
  // cannot be opened.
  [[nodiscard]] std::int32_t OpenLogFile(const std::string& name);
  // Writes one line and flushes it. 1 when written, 0 for an invalid handle.
  int WriteToLog(std::int32_t handle, const std::string& text);
  // Closes and removes the file. True iff it was removed; false (0) for an invalid handle.
  bool DeleteLogFile(std::int32_t handle);

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  struct LogFile {
    std::unique_ptr<std::FILE, FileCloser> stream;
    std::string name;
  };
  [[nodiscard]] bool IsValidHandle(std::int32_t handle) const;

  std::int32_t m_nLogFiles = 0;  // also the next handle
  std::vector<LogFile> m_logFiles;
};

// Standard output. Errors too: -e has to catch every line.
class CConsoleLogMan : public CLogMan {
 public:
  // Writes up to the first NUL, then a newline, and flushes.
  void PrintString(const std::string& text) override;
  void PrintInfo(const CUserInfo& info) override;
};

// Collects the output of an embedded run; nothing is printed.
class CAPILogMan : public CLogMan {
 public:
  void PrintString(const std::string& text) override;
  void PrintInfo(const CUserInfo& info) override;
  const std::string& GetOutput() const { return m_output; }

 private:
  std::string m_output;
};

}  // namespace tolven

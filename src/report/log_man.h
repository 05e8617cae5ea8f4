#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "report/user_info.h"

namespace tolven {

// The one way out for text. Also keeps the log files of a run ("tolven.log", "files.log"), and remembers the
// first output that was lost: a run must not look complete when its messages are not.
class CLogMan {
 public:
  virtual void PrintString(const std::string& text) = 0;
  virtual void PrintInfo(const CUserInfo& info) = 0;
  virtual ~CLogMan();
  // One line of the program's own, without any need for memory where the output is a file.
  virtual void PrintLiteral(const char* text) noexcept = 0;
  // True iff a person looks at the output.
  virtual bool IsTerminal() const { return false; }
  // The output goes elsewhere from now on: into the file `name`, a text that lives as long as the process;
  // null: to standard output again.
  virtual void OutputMoved(const char* name) noexcept { static_cast<void>(name); }
  // Asks for what the system reports only at the end of an output.
  virtual void Flush() noexcept {}

  // Creates or truncates `name` and returns its handle, counted from 0; -1 when it cannot be opened. A link
  // is not followed: the file is this run's own.
  [[nodiscard]] std::int32_t OpenLogFile(const std::string& name);
  // Writes one line. 1, or 0 for an invalid handle or a file that is deleted.
  int WriteToLog(std::int32_t handle, const std::string& text);
  // Closes and removes the file. True iff it was removed; false (0) for an invalid handle.
  bool DeleteLogFile(std::int32_t handle);

  // Ends the output. The exit code of a run that ends with `exitCode`: 4 instead of 0 when a line of any
  // output was lost. That is said on the error output, the only one left to say it.
  [[nodiscard]] int Finish(int exitCode) noexcept;

 protected:
  CLogMan();
  CLogMan(const CLogMan&) = delete;
  CLogMan& operator=(const CLogMan&) = delete;
  // `error` 0: nothing was lost.
  void NoteFailure(const char* name, int error) noexcept;

 private:
  struct LogFile;
  [[nodiscard]] LogFile* FindLogFile(std::int32_t handle) const;
  void CloseLogFile(LogFile& file) noexcept;

  std::vector<std::unique_ptr<LogFile>> m_logFiles;  // by handle; the names stay where they are
  const char* m_failedName = nullptr;
  int m_failedError = 0;
};

// Standard output. Errors too: -e has to catch every line.
class CConsoleLogMan : public CLogMan {
 public:
  CConsoleLogMan();
  // Writes up to the first NUL, then a newline; nothing is held back.
  void PrintString(const std::string& text) override;
  // The same, but where nobody watches, lines of this kind go out many at a time: the next line of the other
  // kind, or the end, takes them along.
  void PrintInfo(const CUserInfo& info) override;
  void PrintLiteral(const char* text) noexcept override;
  bool IsTerminal() const override { return m_isTerminal; }
  void OutputMoved(const char* name) noexcept override;
  void Flush() noexcept override;

 private:
  void WriteHeld() noexcept;

  const char* m_name = nullptr;
  bool m_isTerminal = false;
  std::string m_held;  // whole lines
};

// Collects the output of an embedded run; nothing is printed.
class CAPILogMan : public CLogMan {
 public:
  void PrintString(const std::string& text) override;
  void PrintInfo(const CUserInfo& info) override;
  void PrintLiteral(const char* text) noexcept override;
  const std::string& GetOutput() const { return m_output; }

 private:
  std::string m_output;
};

}  // namespace tolven

#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "cmdline/cmd_line.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "tolven/archive.h"

namespace tolven {

// A failure that the program does not know: code and text of archive.h.
struct LibraryError {
  std::int32_t code;
  std::string text;
};

// Takes a structure of a caller, whose library may be another: what it does not have is zero, what we do not
// know must be. `First`: the size of the first release of the structure.
template <typename Structure>
Structure TakeStructure(const Structure* given, std::size_t first = sizeof(Structure)) {
  if (given == nullptr || given->struct_size < first) {
    throw LibraryError{TOLVEN_E_ARGUMENT, "a structure is missing, or its size"};
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(given);
  for (std::size_t i = sizeof(Structure); i < given->struct_size; ++i) {
    if (bytes[i] != 0) throw LibraryError{TOLVEN_E_ARGUMENT, "a structure has members that are not known"};
  }
  Structure taken{};
  std::memcpy(&taken, given, std::min(given->struct_size, sizeof taken));
  return taken;
}

// What every handle is: its options, its own run status, and the outcome of the last call. A call runs in its
// scope, so that nothing below knows whether it works for the program or for a handle.
class CHandle {
 public:
  explicit CHandle(const tolven_options& options);
  CHandle(const CHandle&) = delete;
  CHandle& operator=(const CHandle&) = delete;

  // Runs `body`; TOLVEN_OK or the code of what it threw. Nothing escapes.
  template <typename Body>
  std::int32_t Call(const Body& body) noexcept {
    m_status.exitCode = 0;
    SetError(TOLVEN_OK, {});
    return RunIn(m_status, body);
  }
  // The same beside other calls of the handle, with a status of its own. A success leaves code and text
  // alone.
  template <typename Body>
  std::int32_t CallBeside(const Body& body) noexcept {
    RunStatus status{.ownsSignals = false};
    return RunIn(status, body);
  }

  void Cancel() { m_cancelled = true; }
  // False when the call is to end; tells the progress before.
  bool Advance(std::int64_t position, std::int64_t total);
  bool IsCancelled() const { return m_cancelled; }

  std::int32_t Code() const { return m_code; }
  const char* Text() const { return m_textLost ? "no memory for the text" : m_text.c_str(); }

 protected:
  ~CHandle() = default;
  void ForgetCancel() { m_cancelled = false; }
  // A failure of which the container tells by the exit code alone: what it printed is the text.
  void RaiseExitCode();

  RunStatus m_status;
  CmdOptions m_cmdOptions;

 private:
  // Messages go to the caller's callback; the last one is kept.
  class CMessages : public CLogMan {
   public:
    explicit CMessages(const tolven_options& options) : m_options(options) {}
    void PrintString(const std::string& text) override;
    void PrintInfo(const CUserInfo& info) override { PrintString(info.GetInfoText()); }
    void PrintLiteral(const char* text) noexcept override;
    const std::string& Last() const { return m_last; }

   private:
    const tolven_options& m_options;
    std::string m_last;
  };

  template <typename Body>
  std::int32_t RunIn(RunStatus& status, const Body& body) noexcept {
    const RunStatusScope scope(status);
    try {
      body();
      return TOLVEN_OK;
    } catch (...) {
      return TakeError();
    }
  }
  // In a handler: notes what is being handled; its code.
  std::int32_t TakeError() noexcept;
  void SetError(std::int32_t code, std::string_view text) noexcept;

  const tolven_options m_options;
  CMessages m_messages;
  std::atomic<bool> m_cancelled = false;
  std::mutex m_errorLock;
  std::int32_t m_code = TOLVEN_OK;
  std::string m_text;
  bool m_textLost = false;
};

}  // namespace tolven

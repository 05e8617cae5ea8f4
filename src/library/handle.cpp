#include "library/handle.h"

#include <new>

#include "report/error_numbers.h"
#include "report/except.h"

namespace tolven {

void CHandle::CMessages::PrintString(const std::string& text) {
  m_last = text;
  if (m_options.message != nullptr) m_options.message(m_options.context, text.c_str());
}

void CHandle::CMessages::PrintLiteral(const char* text) noexcept {
  if (m_options.message != nullptr) m_options.message(m_options.context, text);
}

CHandle::CHandle(const tolven_options& options) : m_options(options), m_messages(m_options) {
  m_status.logManager = &m_messages;
  m_status.ownsSignals = false;
  m_cmdOptions.threads = options.threads == 0 ? 1 : options.threads;
}

bool CHandle::Advance(std::int64_t position, std::int64_t total) {
  if (!m_cancelled && m_options.progress != nullptr) {
    const auto from = static_cast<std::uint64_t>(position);
    if (m_options.progress(m_options.context, from, static_cast<std::uint64_t>(total)) != 0)
      m_cancelled = true;
  }
  return !m_cancelled;
}

void CHandle::RaiseExitCode() {
  if (m_status.exitCode != 0) throw LibraryError{m_status.exitCode, m_messages.Last()};
}

std::int32_t CHandle::TakeError() noexcept {
  std::int32_t code = kErrorUnexpected;
  try {
    try {
      throw;
    } catch (const LibraryError& error) {
      SetError(code = error.code, error.text);
    } catch (const CExcept& error) {
      // What failed because it was to end is no failure of the archive.
      code = m_cancelled ? TOLVEN_E_CANCELLED : error.GetNumber();
      if (code == TOLVEN_OK) code = kErrorUnexpected;
      SetError(code, m_cancelled ? "cancelled" : error.GetMsg());
    } catch (const std::bad_alloc&) {
      SetError(code = kErrorMemory, "TOLVEN: can not allocate new memory");
    } catch (const std::exception& error) {
      SetError(code, error.what());
    }
  } catch (...) {
    SetError(code, "TOLVEN: unexpected exception thrown");
  }
  return code;
}

void CHandle::SetError(std::int32_t code, std::string_view text) noexcept {
  const std::lock_guard lock(m_errorLock);
  m_code = code;
  try {
    m_text = text;
    m_textLost = false;
  } catch (const std::bad_alloc&) {
    m_textLost = true;
  }
}

}  // namespace tolven

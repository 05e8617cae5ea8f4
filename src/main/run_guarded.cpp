#include "main/run_guarded.h"

#include <new>
#include <stdexcept>

#include "report/except.h"
#include "report/log_man.h"
#include "report/run_status.h"

namespace tolven {
namespace {

constexpr int kExitMemory = 2;
constexpr int kExitUnexpected = 32;
constexpr int kExitOutOfRange = 33;
constexpr int kExitLength = 34;

void Print(const char* message) noexcept {
  CLogMan* logManager = RunStatus::Current().logManager;
  if (logManager != nullptr) logManager->PrintLiteral(message);
}

void Fail(const char* message, int code) noexcept {
  Print(message);
  RunStatus::Current().exitCode = code;
}

}  // namespace

void ReportException() noexcept {
  try {
    throw;
  } catch (const CExcept& e) {
    Print(e.GetMsg().c_str());
  } catch (const std::out_of_range&) {
    Fail("string: out_of_range-exception", kExitOutOfRange);
  } catch (const std::length_error&) {
    Fail("string: length_error", kExitLength);
  } catch (const std::bad_alloc&) {
    Fail("TOLVEN: can not allocate new memory", kExitMemory);
  } catch (...) {
    Fail("TOLVEN: unexpected exception thrown", kExitUnexpected);
  }
}

}  // namespace tolven

#include "main/run_guarded.h"

#include <new>
#include <stdexcept>

#include "report/error_numbers.h"
#include "report/except.h"
#include "report/log_man.h"
#include "report/run_status.h"

namespace tolven {
namespace {

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
    Fail("string: out_of_range-exception", kErrorOutOfRange);
  } catch (const std::length_error&) {
    Fail("string: length_error", kErrorLength);
  } catch (const std::bad_alloc&) {
    Fail("TOLVEN: can not allocate new memory", kErrorMemory);
  } catch (...) {
    Fail("TOLVEN: unexpected exception thrown", kErrorUnexpected);
  }
}

}  // namespace tolven

#include "main/run_guarded.h"

#include <new>
#include <stdexcept>
#include <string>

#include "fileio/run_signals.h"
#include "report/except.h"

namespace tolven {

namespace {

constexpr int kExitMemory = 2;
constexpr int kExitUnexpected = 32;
constexpr int kExitOutOfRange = 33;
constexpr int kExitLength = 34;

void Fail(CProcessor& processor, const std::string& message, int code) {
  processor.LogManager().PrintString(message);
  processor.SetExitCode(code);
}

}  // namespace

void RunGuarded(CProcessor& processor, const std::function<void()>& body) {
  // Made before anything can fail for lack of memory.
  const std::string noMemory = "TOLVEN: can not allocate new memory";
  const CRunSignals signals;
  try {
    body();
  } catch (const CExcept& e) {
    processor.LogManager().PrintInfo(e);
  } catch (const std::out_of_range&) {
    Fail(processor, "string: out_of_range-exception", kExitOutOfRange);
  } catch (const std::length_error&) {
    Fail(processor, "string: length_error", kExitLength);
  } catch (const std::bad_alloc&) {
    Fail(processor, noMemory, kExitMemory);
  } catch (...) {
    Fail(processor, "TOLVEN: unexpected exception thrown", kExitUnexpected);
  }
}

}  // namespace tolven

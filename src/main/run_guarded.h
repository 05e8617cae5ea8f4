#pragma once

#include "fileio/run_signals.h"

namespace tolven {

// Called in a handler: turns whatever is being handled into a printed message and an exit code, both by way
// of the current RunStatus. Needs no memory, and nothing escapes.
void ReportException() noexcept;

// The one catch ladder of the program, shared by main and the embedded entry. No std::function: making one
// takes memory, outside the ladder.
template <typename Body>
void RunGuarded(const Body& body) {
  const CRunSignals signals;
  try {
    body();
  } catch (...) {
    ReportException();
  }
}

}  // namespace tolven

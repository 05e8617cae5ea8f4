#pragma once

#include <signal.h>

#include <string>

namespace tolven {

// The temporary file in work, or the archive that a create has half written: SIGINT and SIGTERM remove it
// before the process dies by that signal. The name is resolved to an absolute path when it is guarded.
class CRemoveOnSignal {
 public:
  explicit CRemoveOnSignal(const std::string& path);
  ~CRemoveOnSignal();
  CRemoveOnSignal(const CRemoveOnSignal&) = delete;
  CRemoveOnSignal& operator=(const CRemoveOnSignal&) = delete;

 private:
  int m_slot = -1;  // -1: the name could not be made absolute, nothing is guarded
};

// While one lives, SIGINT and SIGTERM wait. For the moments between making a file and guarding it, in which a
// signal would leave the file behind.
class CHoldSignals {
 public:
  CHoldSignals();
  ~CHoldSignals();
  CHoldSignals(const CHoldSignals&) = delete;
  CHoldSignals& operator=(const CHoldSignals&) = delete;

 private:
  sigset_t m_before{};
};

}  // namespace tolven

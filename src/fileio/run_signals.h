#pragma once

#include <cstddef>

namespace tolven {

// What a run must not leave half done when a signal ends it: HUP, INT, QUIT, PIPE, TERM or XCPU, each where
// it would end the process; one that is ignored, or that an embedding program handles itself, stays as it is.
// Whoever has something to undo derives from this and arms it while the thing stands half done. The handlers
// come with the first one armed. A run that does not own the signals (RunStatus) leaves all of them alone.
//
// The handler runs in the thread that installed it, whichever the system picked: between any two instructions
// of the run, but never beside it.
class CUndoOnSignal {
 public:
  CUndoOnSignal() = default;
  CUndoOnSignal(const CUndoOnSignal&) = delete;
  CUndoOnSignal& operator=(const CUndoOnSignal&) = delete;

  // Runs in the handler: calls that are safe there, and nothing that the run may have in its hands. It may
  // run twice.
  virtual void Undo() noexcept = 0;

 protected:
  // By now the part that knows how to undo is gone: the derived class disarms in its own destructor.
  virtual ~CUndoOnSignal() = default;
  // What Undo reads must be complete before and stay until Disarm. Arming twice is arming once.
  void Arm();
  void Disarm();

 private:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  std::size_t m_slot = kNone;
};

// While one lives, those signals wait: for the moments between making something and arming what undoes it.
// Costs no system call. Not for calls that may block: the signal would wait as long.
class CHoldSignals {
 public:
  CHoldSignals();
  ~CHoldSignals();
  CHoldSignals(const CHoldSignals&) = delete;
  CHoldSignals& operator=(const CHoldSignals&) = delete;

 private:
  const bool m_holds;
};

// One run's say over the signals of the process. From the start a file size limit is an error of the write
// that meets it, not a signal; at the end every handler is what it was before: an embedding program finds its
// own, and none that points into a library it may unload.
class CRunSignals {
 public:
  CRunSignals();
  ~CRunSignals();
  CRunSignals(const CRunSignals&) = delete;
  CRunSignals& operator=(const CRunSignals&) = delete;
};

}  // namespace tolven

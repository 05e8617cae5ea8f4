#include "fileio/run_signals.h"

#include <pthread.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <cerrno>

#include "report/run_status.h"

namespace tolven {
namespace {

constexpr std::array kEndingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU};

// The archive and the file being extracted, and room for more files in work at a time.
std::array<std::atomic<CUndoOnSignal*>, 8> g_armed;
static_assert(std::atomic<CUndoOnSignal*>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "a handler may touch them");

std::atomic<int> g_holds = 0;
std::atomic<int> g_waiting = 0;  // the signal that came meanwhile

bool g_installed = false;
pthread_t g_runThread{};
// As they were before the run; only those that were replaced are given back.
struct Replaced {
  bool done = false;
  struct sigaction before {};
};
std::array<Replaced, kEndingSignals.size()> g_replaced;
Replaced g_replacedSizeLimit;

// Undoes everything and ends the process by the signal, as it would have ended without a handler. Within the
// handler the signal is blocked: it strikes when the handler returns, before the run goes on.
void UndoAndDie(int signal) {
  for (const std::atomic<CUndoOnSignal*>& slot : g_armed) {
    if (CUndoOnSignal* armed = slot.load()) armed->Undo();
  }
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
  raise(signal);
}

extern "C" void EndRun(int signal) {
  const int error = errno;
  if (pthread_equal(pthread_self(), g_runThread) == 0) {
    pthread_kill(g_runThread, signal);
  } else if (g_holds.load() > 0) {
    g_waiting.store(signal);
  } else {
    UndoAndDie(signal);
  }
  errno = error;
}

bool IsDefault(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

void Replace(int signal, const struct sigaction& action, Replaced& replaced) {
  replaced.done = sigaction(signal, nullptr, &replaced.before) == 0 && IsDefault(replaced.before) &&
                  sigaction(signal, &action, nullptr) == 0;
}

// What somebody else set meanwhile is theirs and stays.
void GiveBack(int signal, void (*ours)(int), Replaced& replaced) {
  if (!replaced.done) return;
  replaced.done = false;
  struct sigaction current = {};
  if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler == ours) {
    sigaction(signal, &replaced.before, nullptr);
  }
}

void Install() {
  if (g_installed) return;
  g_installed = true;
  const int error = errno;
  g_runThread = pthread_self();
  struct sigaction action = {};
  action.sa_handler = EndRun;
  action.sa_flags = SA_RESTART;  // it returns while signals are held
  sigemptyset(&action.sa_mask);
  for (const int signal : kEndingSignals) sigaddset(&action.sa_mask, signal);
  for (std::size_t i = 0; i < kEndingSignals.size(); ++i) Replace(kEndingSignals[i], action, g_replaced[i]);
  errno = error;
}

}  // namespace

void CUndoOnSignal::Arm() {
  if (m_slot != kNone || !RunStatus::Current().ownsSignals) return;
  Install();
  for (std::size_t i = 0; i < g_armed.size(); ++i) {
    if (g_armed[i].load() != nullptr) continue;
    m_slot = i;
    g_armed[i].store(this);
    return;
  }
}

void CUndoOnSignal::Disarm() {
  if (m_slot != kNone) g_armed[m_slot].store(nullptr);
  m_slot = kNone;
}

CHoldSignals::CHoldSignals() : m_holds(RunStatus::Current().ownsSignals) {
  if (!m_holds) return;
  Install();
  ++g_holds;
}

CHoldSignals::~CHoldSignals() {
  if (!m_holds) return;
  // A signal before this waits and is seen below; one after it is handled at once.
  if (--g_holds > 0) return;
  const int signal = g_waiting.exchange(0);
  if (signal != 0) UndoAndDie(signal);
}

CRunSignals::CRunSignals() {
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  Replace(SIGXFSZ, ignore, g_replacedSizeLimit);
}

CRunSignals::~CRunSignals() {
  GiveBack(SIGXFSZ, SIG_IGN, g_replacedSizeLimit);
  for (std::size_t i = 0; i < kEndingSignals.size(); ++i) {
    GiveBack(kEndingSignals[i], EndRun, g_replaced[i]);
  }
  g_installed = false;
}

}  // namespace tolven

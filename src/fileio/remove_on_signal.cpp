#include "fileio/remove_on_signal.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>

namespace tolven {
namespace {

// The handler may run between any two instructions: it touches these names, which are complete before their
// flag is set, and calls unlink, sigaction and raise, which are safe there.
struct Slot {
  std::atomic<bool> used = false;
  std::array<char, 2 * PATH_MAX> path{};
};
static_assert(std::atomic<bool>::is_always_lock_free);

// A half-written archive and the temporary file of one entry, and room for an embedding program's surprises.
std::array<Slot, 4> g_slots;

extern "C" void RemoveAndDie(int signal) {
  for (const Slot& slot : g_slots) {
    if (slot.used) unlink(slot.path.data());
  }
  // The action is the default one again (SA_RESETHAND); the signal is delivered when the handler returns.
  raise(signal);
}

// Once a process, not once a file. A signal that is ignored, or that an embedding program handles itself,
// stays as it is.
bool InstallHandlers() {
  struct sigaction action = {};
  action.sa_handler = RemoveAndDie;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  sigaddset(&action.sa_mask, SIGINT);
  sigaddset(&action.sa_mask, SIGTERM);
  for (const int signal : {SIGINT, SIGTERM}) {
    struct sigaction current = {};
    const bool isDefault = sigaction(signal, nullptr, &current) == 0 &&
                           (current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == SIG_DFL;
    if (isDefault) sigaction(signal, &action, nullptr);
  }
  return true;
}

// False when the current directory has no name or the result is too long to be one.
bool MakeAbsolute(const std::string& path, std::array<char, 2 * PATH_MAX>& out) {
  std::size_t length = 0;
  if (path.empty() || path.front() != '/') {
    if (getcwd(out.data(), PATH_MAX) == nullptr) return false;
    length = std::strlen(out.data());
    out[length++] = '/';
  }
  if (length + path.size() >= out.size()) return false;
  std::memcpy(out.data() + length, path.c_str(), path.size() + 1);
  return true;
}

}  // namespace

CHoldSignals::CHoldSignals() {
  sigset_t held;
  sigemptyset(&held);
  sigaddset(&held, SIGINT);
  sigaddset(&held, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &held, &m_before);  // reports failure by its result: errno stays
}

CHoldSignals::~CHoldSignals() {
  pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

CRemoveOnSignal::CRemoveOnSignal(const std::string& path) {
  [[maybe_unused]] static const bool installed = InstallHandlers();
  const int error = errno;
  for (std::size_t i = 0; i < g_slots.size(); ++i) {
    if (g_slots[i].used) continue;
    if (MakeAbsolute(path, g_slots[i].path)) {
      g_slots[i].used = true;
      m_slot = static_cast<int>(i);
    }
    break;
  }
  errno = error;
}

CRemoveOnSignal::~CRemoveOnSignal() {
  if (m_slot >= 0) g_slots[static_cast<std::size_t>(m_slot)].used = false;
}

}  // namespace tolven

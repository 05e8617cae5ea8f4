#include "cslib/handle_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <system_error>

#include "cslib/context.h"
#include "cslib/trace.h"

namespace tolven {
namespace {

constexpr std::size_t kFirstFreeSlot = 2;  // below: the fixed handles
// The numbers are part of the interface: whether a context was kept shows in what CsOpenHandle returns.
constexpr std::uint32_t kKeepUses = 9;      // a context used more often than this may outlive its handle
constexpr std::uint32_t kKeepAllSum = 257;  // below this sum every such context is kept
constexpr int kKeepShareShift = 7;          // above it only those with 1/128 of all uses

// The life of a slot:
//
//   free, empty  --open-->  in use  --close-->  free, empty            the usual way
//                                   --close-->  free, with a context   often used: see KeepsContext
//   free, with a context    --open-->  in use, the context as after its first opening
//
// A slot is free, or in use by the thread that opened it. A context may also stay behind in a free slot, for
// whoever opens it next.
struct Slot {
  std::unique_ptr<CsContext> context;
  bool inUse = false;
};

struct HandleTable {
  std::mutex mutex;  // guards everything below; a slot in use is also read by its owner, without the lock
  std::array<Slot, CS_MAX_HANDLES> slots;
  HandleUses uses;
};

constinit HandleTable g_handleTable;

bool InRange(int handle) {
  return handle >= CS_FIRST_HANDLE && handle < CS_FIRST_HANDLE + CS_MAX_HANDLES;
}

std::size_t SlotOf(int handle) {
  return static_cast<std::size_t>(handle - CS_FIRST_HANDLE);
}

// The lock is held for a look at the table or a mark in it, never while memory is taken or given back, which
// may be slow, and never while a coder runs.
//
// Runs `work` with the table locked; CS_OK or the code of the lock.
template <typename Work>
CsResult Locked(Work work) {
  std::unique_lock<std::mutex> lock(g_handleTable.mutex, std::defer_lock);
  if (const CsResult failed = ThrCSLock(lock); failed != CS_OK) return failed;
  work();
  return ThrCSUnlock(lock);
}

// The slot is marked in use, so it is this thread's own; only handing the context in needs the lock, since
// the rule for keeping contexts looks at the neighbour's. Memory is never taken under the lock.
// 0: the context was there; 1: newly allocated; negative: the slot is free again.
int ProvideContext(Slot& slot) {
  if (slot.context) {
    // A kept context must not let a new owner continue the stream of the last one.
    ReleaseStream(*slot.context);
    slot.context->direction = CsDirection::kNone;
    return 0;
  }
  try {
    auto context = std::make_unique<CsContext>();
    const CsResult locked = Locked([&] { slot.context = std::move(context); });
    return locked == CS_OK ? 1 : locked;
  } catch (const std::bad_alloc&) {
    CsTPrintf("ERROR: CsRCompress: Could not allocate internal buffer\n");
    const CsResult locked = Locked([&] { slot.inUse = false; });
    return locked == CS_OK ? CS_E_MEMORY : locked;
  }
}

// The rule, in the terms of the counts: the slot below has a context, the slot was used more than 9 times,
// and either all slots together were used less than 257 times or this one had at least 1/128 of that.
//
// Under the lock. Contexts of often used handles stay for the next owner, which saves setting up the coders
// anew: up to half a megabyte each. Slots are given out from the lowest free one upwards, so a context whose
// lower neighbour has none is one that a passing crowd left behind, and goes whatever its count.
bool KeepsContext(std::size_t index) {
  return index >= kFirstFreeSlot && g_handleTable.slots[index - 1].context && g_handleTable.uses.Often(index);
}

CsResult Release(std::size_t index) {
  std::unique_ptr<CsContext> freed;  // its memory goes back after the table is unlocked
  return Locked([&] {
    Slot& slot = g_handleTable.slots[index];
    if (!KeepsContext(index)) freed = std::move(slot.context);
    slot.inUse = false;
  });
}

}  // namespace

// Starting anew forgets who was often used. That costs a few contexts, once in two thousand million uses.
void HandleUses::Count(std::size_t slot) {
  if (sum > std::numeric_limits<std::int32_t>::max()) {
    ofSlot.fill(0);
    sum = 0;
  }
  ++ofSlot[slot];
  ++sum;
}

bool HandleUses::Often(std::size_t slot) const {
  if (ofSlot[slot] <= kKeepUses) return false;
  return sum < kKeepAllSum || ofSlot[slot] >= sum >> kKeepShareShift;
}

// A mutex throws where the system refuses it. Nothing may be thrown across the interface of the engine, and a
// code per direction tells the two failures apart.
CsResult ThrCSLock(std::unique_lock<std::mutex>& lock) {
  try {
    lock.lock();
    return CS_OK;
  } catch (const std::system_error&) {
    return CS_E_LOCK;
  }
}

CsResult ThrCSUnlock(std::unique_lock<std::mutex>& lock) {
  try {
    lock.unlock();
    return CS_OK;
  } catch (const std::system_error&) {
    return CS_E_UNLOCK;
  }
}

// Numbers come from callers, so any number is an answer: of a handle that was closed, that never was, or that
// is in use without a context because its memory could not be had.
CsContext* FindContext(int handle) {
  if (!InRange(handle)) return nullptr;
  const Slot& slot = g_handleTable.slots[SlotOf(handle)];
  return slot.inUse ? slot.context.get() : nullptr;
}

// The slot is taken under the lock and its context made afterwards, so two threads never get the same slot,
// and a failure gives it back. The use is counted last, since only a handle that was really given out is one.
int CsSearchNewHandle() {
  std::size_t index = CS_MAX_HANDLES;
  CsResult locked = Locked([&] {
    const auto first = g_handleTable.slots.begin() + kFirstFreeSlot;
    const auto free =
        std::find_if(first, g_handleTable.slots.end(), [](const Slot& slot) { return !slot.inUse; });
    if (free == g_handleTable.slots.end()) return;
    free->inUse = true;
    index = static_cast<std::size_t>(free - g_handleTable.slots.begin());
  });
  if (locked != CS_OK) return locked;
  if (index == CS_MAX_HANDLES) return CS_E_NO_HANDLE;
  Slot& slot = g_handleTable.slots[index];
  if (const int context = ProvideContext(slot); context < 0) return context;
  locked = Locked([&] { g_handleTable.uses.Count(index); });
  return locked == CS_OK ? static_cast<int>(index) + CS_FIRST_HANDLE : locked;
}

CsResult CsRGetHandle(int* handle) {
  *handle = CsSearchNewHandle();
  return *handle < 0 ? static_cast<CsResult>(*handle) : CS_OK;
}

// For the two fixed handles, which are opened by every start call and opened once. Here the use is counted
// with the mark: there is no other user of the slot who could be counted wrongly.
int CsOpenHandle(int handle) {
  if (!InRange(handle)) return CS_E_HANDLE;
  Slot& slot = g_handleTable.slots[SlotOf(handle)];
  bool opened = false;
  const CsResult locked = Locked([&] {
    if (slot.inUse) return;
    slot.inUse = true;
    opened = true;
    g_handleTable.uses.Count(SlotOf(handle));
  });
  if (locked != CS_OK) return locked;
  return opened ? ProvideContext(slot) : CS_OK;
}

// Closing a handle that is not open does nothing but look whether its context should stay: it is no error, so
// that a caller may close in any order, and twice.
CsResult CsRCloseHandle(int handle) {
  return InRange(handle) ? Release(SlotOf(handle)) : CS_OK;
}

CsResult CsRCloseAllHandles() {
  for (std::size_t index = kFirstFreeSlot; index < CS_MAX_HANDLES; ++index) {
    if (const CsResult failed = Release(index); failed != CS_OK) return failed;
  }
  return CS_OK;
}

// For a caller who does not own the handle and may look at it from any thread, hence under the lock.
int CsTestValidHandle(int handle) {
  if (!InRange(handle)) return 0;
  bool valid = false;
  const CsResult locked = Locked([&] { valid = FindContext(handle) != nullptr; });
  return locked == CS_OK && valid ? 1 : 0;
}

}  // namespace tolven

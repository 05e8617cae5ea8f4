#pragma once

// The table of the engine's 1000 stream contexts. The entry points that callers know stand in cslib.h.

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "cslib/cslib.h"

namespace tolven {

struct CsContext;

// The context behind a handle: null when the number is out of range, or its slot is empty or not in use.
//
// Nothing is locked here, although every call of a stream comes this way. A slot in use belongs to the thread
// that opened it, and nobody else changes it before it is closed; that two threads do not share a handle is
// the caller's part of the bargain. What may change at any time is which slots are free, and that is only
// looked at under the lock. The table keeps the ownership.
CsContext* FindContext(int handle);

// How often the slots were used, and all of them together; each count runs up to 2^31 at most.
struct HandleUses {
  std::array<std::uint32_t, CS_MAX_HANDLES> ofSlot{};
  std::uint32_t sum = 0;

  // A sum beyond 2^31 - 1 starts all counts anew.
  void Count(std::size_t slot);
  // Whether a slot is used often, and often enough beside all others, for its context to outlive its handle.
  [[nodiscard]] bool Often(std::size_t slot) const;
};

// The lock of the table. A lock that cannot be taken is CS_E_LOCK, one that cannot be given back CS_E_UNLOCK.
CsResult ThrCSLock(std::unique_lock<std::mutex>& lock);
CsResult ThrCSUnlock(std::unique_lock<std::mutex>& lock);

}  // namespace tolven

#pragma once

// The table of the engine's 1000 stream contexts. The entry points that callers know stand in cslib.h.

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "cslib/cslib.h"

namespace tolven {

struct CsContext;

// The context behind a handle: null when the number is out of range, or its slot is empty or not in use. The
// caller is the thread that works on the handle's stream, so nothing is locked; the table keeps the
// ownership.
CsContext* FindContext(int handle);

// How often the slots were used, and all of them together; each count runs up to 2^31 at most.
struct HandleUses {
  std::array<std::uint32_t, CS_MAX_HANDLES> ofSlot{};
  std::uint32_t sum = 0;

  // A sum beyond 2^31 - 1 starts all counts anew.
  void Count(std::size_t slot);
  // A context used often, and often enough beside all others, may outlive its handle.
  [[nodiscard]] bool Often(std::size_t slot) const;
};

// The lock of the table. A lock that cannot be taken is CS_E_LOCK, one that cannot be given back CS_E_UNLOCK.
[[nodiscard]] int ThrCSLock(std::unique_lock<std::mutex>& lock);
[[nodiscard]] int ThrCSUnlock(std::unique_lock<std::mutex>& lock);

}  // namespace tolven

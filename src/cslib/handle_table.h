#pragma once

// The table of the engine's 1000 stream contexts. The entry points that callers know stand in cslib.h.

#include <mutex>

namespace tolven {

struct CsContext;

// The context behind a handle: null when the number is out of range, or its slot is empty or not in use. The
// caller is the thread that works on the handle's stream, so nothing is locked; the table keeps the
// ownership.
CsContext* FindContext(int handle);

// The lock of the table. A lock that cannot be taken is CS_E_LOCK, one that cannot be given back CS_E_UNLOCK.
[[nodiscard]] int ThrCSLock(std::unique_lock<std::mutex>& lock);
[[nodiscard]] int ThrCSUnlock(std::unique_lock<std::mutex>& lock);

}  // namespace tolven

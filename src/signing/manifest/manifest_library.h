#pragma once

#include <mutex>

namespace tolven {

// The cryptographic library is not re-entrant: every call into it is made while one of these lives.
// Recursive. Before ManifestStartup and after ManifestCleanup there is no mutex; Locked() is then false, and
// nothing is loaded that could be called.
class DkvLock {
 public:
  DkvLock();
  bool Locked() const { return m_lock.owns_lock(); }

 private:
  std::unique_lock<std::recursive_mutex> m_lock;
};

}  // namespace tolven

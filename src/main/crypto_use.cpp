#include "main/crypto_use.h"

#include <mutex>
#include <type_traits>

#include "signing/manifest/manifest.h"

namespace tolven {

namespace {

// Never destroyed: exit handlers of a host come later than ours.
std::mutex g_lock;
static_assert(std::is_trivially_destructible_v<std::mutex>);
unsigned g_uses = 0;

}  // namespace

CCryptoUse::CCryptoUse() {
  const std::lock_guard lock(g_lock);
  ++g_uses;
}

CCryptoUse::~CCryptoUse() {
  const std::lock_guard lock(g_lock);
  if (--g_uses == 0) ManifestCleanup();
}

}  // namespace tolven

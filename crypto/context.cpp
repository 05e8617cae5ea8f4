#include <openssl/err.h>
#include <openssl/provider.h>

#include <array>

#include "openssl.h"

namespace tolven::crypto {
namespace {

struct Loaded {
  OSSL_LIB_CTX* context = OSSL_LIB_CTX_new();
  std::array<OSSL_PROVIDER*, 2> providers{};

  Loaded() = default;
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;
  // A context that is freed does not unload what was loaded into it.
  ~Loaded() {
    for (OSSL_PROVIDER* provider : providers) {
      if (provider != nullptr) OSSL_PROVIDER_unload(provider);
    }
    OSSL_LIB_CTX_free(context);
  }
};

}  // namespace

std::shared_ptr<OSSL_LIB_CTX> ContextWith(const char* provider) {
  const auto loaded = std::make_shared<Loaded>();
  bool complete = loaded->context != nullptr;
  for (const char* name : {"default", provider}) {
    // Without a context the call would load into the one of the whole process.
    OSSL_PROVIDER* one = complete ? OSSL_PROVIDER_load(loaded->context, name) : nullptr;
    loaded->providers[name == provider ? 1 : 0] = one;
    complete = one != nullptr;
  }
  if (complete) return {loaded, loaded->context};
  ERR_clear_error();
  return nullptr;
}

}  // namespace tolven::crypto

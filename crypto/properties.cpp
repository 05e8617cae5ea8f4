#include <openssl/crypto.h>
#include <openssl/provider.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "api.h"

// What this library says about itself, and its start and end.
namespace tolven::crypto {
namespace {

constexpr char kMaker[] = "QELCRYPTOLIB";
constexpr int kVersion = 8;      // from 8 on a library is ended with qelcr_done
constexpr int kPatchLevel = 35;  // the first that supports software signatures

constexpr char kFips[] = "FIPS_140_2_CRYPTO_KERNEL_ACTIVE";

int users = 0;
bool fipsWanted = false;
bool fipsActive = false;

// Unloaded by qelcr_done. No owners: at the end of the process OpenSSL unloads them itself, before objects of
// this library are destroyed.
OSSL_PROVIDER* fipsProvider = nullptr;
OSSL_PROVIDER* baseProvider = nullptr;

void UnloadFips() {
  if (fipsProvider != nullptr) OSSL_PROVIDER_unload(fipsProvider);
  if (baseProvider != nullptr) OSSL_PROVIDER_unload(baseProvider);
  fipsProvider = nullptr;
  baseProvider = nullptr;
}

const char* VersionText() {
  static const std::string text = std::to_string(kVersion) + ".0." + std::to_string(kPatchLevel) + ", " +
                                  OpenSSL_version(OPENSSL_VERSION);
  return text.c_str();
}

// The certified kernel brings no decoders of keys; those come with "base".
bool StartFips() {
  fipsProvider = OSSL_PROVIDER_load(nullptr, "fips");
  baseProvider = OSSL_PROVIDER_load(nullptr, "base");
  fipsActive = fipsProvider != nullptr && baseProvider != nullptr &&
               EVP_set_default_properties(nullptr, "fips=yes") == 1;
  if (!fipsActive) UnloadFips();
  return fipsActive;
}

// True iff a member that ends at `end` lies within the caller's structure.
#define TOLVEN_HAS(properties, member) \
  ((properties)->size >= offsetof(DkvProperties, member) + sizeof((properties)->member))

}  // namespace

bool IsInitialised() {
  return users > 0;
}

bool IsFipsActive() {
  return fipsActive;
}

extern "C" {

DKV_API int qelcr_init(void) {
  if (users == 0) {
    // What a signature is worth must not depend on the machine's OpenSSL configuration; only the certified
    // kernel cannot start without it.
    const std::uint64_t config = fipsWanted ? OPENSSL_INIT_LOAD_CONFIG : OPENSSL_INIT_NO_LOAD_CONFIG;
    if (OPENSSL_init_crypto(config, nullptr) != 1) return DKV_ERR_GENERAL;
    // A default context that memory was short for stays half made: whatever uses it later would crash.
    if (OSSL_LIB_CTX_get0_global_default() == nullptr) return DKV_ERR_GENERAL;
    if (fipsWanted && !StartFips()) return DKV_ERR_NOT_SUPPORTED;
  }
  ++users;
  return DKV_OK;
}

DKV_API int qelcr_done(void) {
  if (users == 0) return DKV_ERR_NOT_INITIALISED;
  if (--users == 0 && fipsActive) {
    EVP_set_default_properties(nullptr, "");
    UnloadFips();
    fipsActive = false;
  }
  return DKV_OK;
}

DKV_API int qelcr_set_property_int(const char* name, int value) {
  if (name == nullptr) return DKV_ERR_ARGUMENT;
  if (std::strcmp(name, kFips) != 0) return DKV_ERR_PROPERTY;
  if (users > 0 && (value != 0) != fipsActive) return DKV_ERR_PROPERTY;
  fipsWanted = value != 0;
  return DKV_OK;
}

DKV_API int qelcr_get_property_int(const char* name, int* value) {
  if (name == nullptr || value == nullptr) return DKV_ERR_ARGUMENT;
  if (std::strcmp(name, kFips) == 0) {
    *value = fipsActive ? 1 : 0;
  } else if (std::strcmp(name, "VERSION") == 0) {
    *value = kVersion;
  } else if (std::strcmp(name, "PATCH_LEVEL") == 0) {
    *value = kPatchLevel;
  } else {
    return DKV_ERR_PROPERTY;
  }
  return DKV_OK;
}

DKV_API int qelcr_get_property_string(const char* name, const char** value) {
  if (name == nullptr || value == nullptr) return DKV_ERR_ARGUMENT;
  if (std::strcmp(name, "VERSION_TEXT") == 0) {
    *value = VersionText();
  } else if (std::strcmp(name, "MAKER") == 0) {
    *value = kMaker;
  } else {
    return DKV_ERR_PROPERTY;
  }
  return DKV_OK;
}

DKV_API int DkvVersion(const char** text) {
  if (text == nullptr) return DKV_ERR_ARGUMENT;
  *text = VersionText();
  return DKV_OK;
}

DKV_API int DkvQueryProperties(DkvProperties* properties) {
  if (properties == nullptr || !TOLVEN_HAS(properties, maker)) return DKV_ERR_ARGUMENT;
  properties->maker = kMaker;
  if (TOLVEN_HAS(properties, versionText)) properties->versionText = VersionText();
  if (TOLVEN_HAS(properties, version)) properties->version = kVersion;
  if (TOLVEN_HAS(properties, patchLevel)) properties->patchLevel = kPatchLevel;
  return DKV_OK;
}

}  // extern "C"
}  // namespace tolven::crypto

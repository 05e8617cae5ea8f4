// A library of the DKV interface with next to nothing in it. What it is asked to do it notes in the
// environment variable TINY_LOG, which outlives its unloading.
#include <cstdlib>
#include <cstring>
#include <string>

#define DKV_API __attribute__((visibility("default")))
#include "signing/crypto/dkv.h"

namespace {

QelTraceCallback traceCallback = nullptr;

void Note(const std::string& what) {
  const char* before = std::getenv("TINY_LOG");
  setenv("TINY_LOG", ((before == nullptr ? "" : before) + what + " ").c_str(), 1);
}

}  // namespace

extern "C" {

DKV_API int qelcr_init(void) {
  Note(std::getenv("SECUDIR") == nullptr ? "init-without-secudir" : "init");
  return TINY_INIT_RC;
}

DKV_API int qelcr_done(void) {
  Note("done");
  return DKV_OK;
}

DKV_API int qelcr_set_property_int(const char* name, int value) {
  Note(std::string(name) + "=" + std::to_string(value));
  return value == 0 ? DKV_OK : DKV_ERR_PROPERTY;
}

DKV_API int qelcr_get_property_int(const char* name, int* value) {
  *value = std::strcmp(name, "FIPS_140_2_CRYPTO_KERNEL_ACTIVE") == 0 ? 1 : 0;
  return DKV_OK;
}

DKV_API int DkvQueryProperties(DkvProperties* properties) {
  properties->maker = TINY_MAKER;
  properties->version = TINY_VERSION;
  properties->patchLevel = 12;
  return DKV_OK;
}

DKV_API int DkvVersion(const char** text) {
  *text = "tiny";
  return DKV_OK;
}

DKV_API const char* DkvRcName(int rc) {
  return rc == 77 ? "TINY_SEVENTY_SEVEN" : nullptr;
}

// Gives back what it got, so that a wrapper can be seen to forward it.
DKV_API int DkvNEWSigRcpDkvInfo(const char* profile, const char* password, SigRcpDkvInfo** info) {
  static SigRcpDkvInfo made;
  made.profile = const_cast<char*>(profile);
  made.password = const_cast<char*>(password);
  *info = &made;
  return 1234;
}

DKV_API int Qelcryptolib_RegisterTraceCallback(QelTraceCallback callback) {
  traceCallback = callback;
  if (callback != nullptr) callback(1, "tiny says hello\n");
  return DKV_OK;
}

DKV_API int Qelcryptolib_UnregisterTraceCallback(void) {
  Note("untrace");
  traceCallback = nullptr;
  return DKV_OK;
}

DKV_API int Qelcryptolib_SetTraceLevel(int level) {
  Note("level" + std::to_string(level));
  return DKV_OK;
}

}  // extern "C"

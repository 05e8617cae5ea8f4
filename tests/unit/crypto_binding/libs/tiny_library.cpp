// A library of the DKV interface with next to nothing in it. What it is asked to do it notes in the
// environment variable TINY_LOG, which outlives its unloading.
#include <cstdlib>
#include <string>

#define DKV_API __attribute__((visibility("default")))
#include "signing/crypto/dkv.h"

namespace {

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

}  // extern "C"

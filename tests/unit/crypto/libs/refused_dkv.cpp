// A library that loads and says who it is, and nothing more.

#define DKV_API __attribute__((visibility("default")))
#include "signing/crypto/dkv.h"

extern "C" {

DKV_API int DkvVersion(const char** text) {
  *text = MAKER " for tests";
  return DKV_OK;
}

DKV_API int DkvQueryProperties(DkvProperties* properties) {
  properties->maker = MAKER;
  properties->versionText = MAKER " for tests";
  properties->version = 8;
  properties->patchLevel = PATCH_LEVEL;
  return DKV_OK;
}

}  // extern "C"

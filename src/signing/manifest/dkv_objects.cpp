#include "signing/manifest/dkv_objects.h"

#include "signing/crypto/dkv_loader.h"
#include "report/code_names.h"

namespace tolven {

DkvPtr<SigRcpDkvInfo> DkvProfile(const DkvTable* table, const std::string& profile, const char* password) {
  DkvPtr<SigRcpDkvInfo> info;
  if (DkvCall(table, info, DkvLibNEWSigRcpDkvInfo, profile.c_str(), password) != DKV_OK) info.reset();
  return info;
}

std::string DkvReason(int code) {
  const DkvLock lock;
  const char* description = DkvErrorDescription(code);
  return description != nullptr ? std::string(description) : DkvCodeName(code);
}

}  // namespace tolven

#include "signing/manifest/dkv_calls.h"

#include "report/code_names.h"
#include "signing/crypto/dkv_loader.h"

namespace tolven {
namespace {

// Made by ManifestStartup, so that nothing can be loaded before it.
std::unique_ptr<std::recursive_mutex> dkvMutex;

}  // namespace

DkvLock::DkvLock() {
  if (dkvMutex != nullptr) m_lock = std::unique_lock(*dkvMutex);
}

void MakeDkvMutex() {
  if (dkvMutex == nullptr) dkvMutex = std::make_unique<std::recursive_mutex>();
}

void DropDkvMutex() {
  dkvMutex.reset();
}

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

std::string DkvInfo(const DkvTable* table) {
  const DkvLock lock;
  const char* text = nullptr;
  return DkvLibSecTKLastErrorInfo(table, &text) == DKV_OK ? DkvText(text) : std::string();
}

std::string DkvReason(int code, const std::string& info) {
  return info.empty() ? DkvReason(code) : DkvReason(code) + " " + info;
}

}  // namespace tolven

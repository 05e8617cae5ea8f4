#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "signing/crypto/dkv_table.h"

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

// The mutex behind the locks, for start-up and clean-up alone. May throw; making it twice is harmless.
void MakeDkvMutex();
void DropDkvMutex();

// Releases what the library handed out, under the lock.
struct DkvRelease {
  const DkvTable* table = nullptr;

  void operator()(DkvOctetstring* p) const { Release(DkvLibDELDkvOctetstring, p); }
  void operator()(SigRcpDkvInfoList* p) const { Release(DkvLibDELSigRcpDkvInfoList, p); }
  void operator()(SigRcpDkvInfo* p) const { Release(DkvLibDELSigRcpDkvInfo, p); }
  void operator()(DkvCertificate* p) const { Release(DkvLibFreeCertificate, p); }
  void operator()(DkvParameter* p) const { Release(DkvLibFreeParameter, p); }
  void operator()(DkvCrlArray* p) const { Release(DkvLibFreeCrlArray, p); }
  void operator()(QelSSLContext* p) const { Release(QelLibSSLDone, p); }
  void operator()(QelSSLSession* p) const { Release(QelLibSSLSessionClose, p); }

 private:
  template <typename Function, typename T>
  void Release(const Function& function, T* object) const {
    const DkvLock lock;
    function(table, object);
  }
};

template <typename T>
using DkvPtr = std::unique_ptr<T, DkvRelease>;

// Calls a function whose last argument is a place for what it hands out; `object` then owns it.
template <typename T, typename Function, typename... Args>
int DkvCall(const DkvTable* table, DkvPtr<T>& object, const Function& function, Args... args) {
  const DkvLock lock;
  T* handedOut = nullptr;
  const int rc = function(table, args..., &handedOut);
  object = DkvPtr<T>(handedOut, DkvRelease{table});
  return rc;
}

// Bytes that the library only reads. The structure wants a pointer to bytes that may be written; nobody does.
inline DkvOctetstring DkvView(std::span<const std::uint8_t> bytes) {
  return {sizeof(DkvOctetstring), bytes.size(), const_cast<unsigned char*>(bytes.data())};
}
inline DkvOctetstring DkvView(std::string_view bytes) {
  return DkvView(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

inline std::vector<std::uint8_t> DkvBytes(const DkvOctetstring& octets) {
  if (octets.octets == nullptr) return {};
  return {octets.octets, octets.octets + octets.noctets};
}

inline std::string DkvText(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

// An entry that names a profile; null when the library has none to give.
DkvPtr<SigRcpDkvInfo> DkvProfile(const DkvTable* table, const std::string& profile, const char* password);

// The library's sentence about a code, or its name, or the number.
std::string DkvReason(int code);

// What the library adds to the code of the last call; empty when nothing. Under the lock of that call.
std::string DkvInfo(const DkvTable* table);
// Both.
std::string DkvReason(int code, const std::string& info);

}  // namespace tolven

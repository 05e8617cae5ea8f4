#pragma once

// The cryptographic library, linked in, and the files of the world that make_seeds made for it.

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "api.h"
#include "fuzz/support.h"

namespace tolven::fuzz {

inline std::string World(const std::string& name) {
  std::ifstream file(WORLD + name, std::ios::binary);
  Require(file.good());
  return {std::istreambuf_iterator<char>(file), {}};
}

inline DkvOctetstring View(Bytes bytes) {
  return {sizeof(DkvOctetstring), bytes.size(), const_cast<unsigned char*>(bytes.data())};
}
inline DkvOctetstring View(const std::string& text) {
  return View(Bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

inline crypto::SignerPtr Profile(const std::string& name) {
  Require(qelcr_init() == DKV_OK);
  SigRcpDkvInfo* info = nullptr;
  Require(DkvNEWSigRcpDkvInfo((WORLD + name).c_str(), nullptr, &info) == DKV_OK);
  return crypto::SignerPtr(info);
}

struct ListReleaser {
  void operator()(SigRcpDkvInfoList* list) const { DkvDELSigRcpDkvInfoList(list); }
};
using ListPtr = std::unique_ptr<SigRcpDkvInfoList, ListReleaser>;

// Texts of strangers must not fake a line of output.
inline void RequirePlain(const std::string& text) {
  Require(std::none_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; }));
}

inline int Verify(const char* format, const std::string& content, Bytes signature, const SigRcpDkvInfo& key) {
  const DkvOctetstring signedBytes = View(content), der = View(signature);
  SigRcpDkvInfoList* list = nullptr;
  const int rc = DkvVerify(format, &signedBytes, &der, &key, &list);
  const ListPtr owner(list);
  Require((list != nullptr) == (rc == DKV_OK || rc == DKV_ERR_SIGNER));
  for (std::size_t i = 0; list != nullptr && i < list->count; ++i) {
    const SigRcpDkvInfo& signer = *list->entries[i];
    Require((rc == DKV_OK) == (signer.result == DKV_OK));
    for (const char* text : {signer.id, signer.subject, signer.issuer, signer.tsaId}) RequirePlain(text);
  }
  return rc;
}

}  // namespace tolven::fuzz

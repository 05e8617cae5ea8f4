#include "pse.h"

#include <openssl/err.h>

#include <algorithm>
#include <tuple>

#include "api.h"
#include "chain.h"
#include "pse_file.h"

namespace tolven::crypto {
namespace {

// After a renewal a profile has several certificates of one key; which one stands first means nothing.
bool IsBetter(X509* one, X509* other, PseUse use) {
  const auto rank = [use](X509* certificate) {
    const bool valid = IsValidAt(certificate, DKV_NO_TIME);
    const bool usable = use != PseUse::kSign || CheckSignerUsage(certificate) == DKV_OK;
    return std::tuple(valid && usable, valid, usable);
  };
  const auto first = rank(one);
  const auto second = rank(other);
  if (first != second) return first > second;
  return ASN1_TIME_compare(X509_get0_notAfter(one), X509_get0_notAfter(other)) > 0;
}

void ChooseOwn(Pse& pse, PseUse use) {
  auto best = pse.further.end();
  for (auto at = pse.further.begin(); at != pse.further.end(); ++at) {
    if (X509_check_private_key(at->get(), pse.key.get()) != 1) continue;
    if (best == pse.further.end() || IsBetter(at->get(), best->get(), use)) best = at;
  }
  ERR_clear_error();  // the certificates that are not the key's
  if (best == pse.further.end()) throw Failure(DKV_ERR_PSE_NO_CERT, "key's certificate");
  pse.own = std::move(*best);
  pse.further.erase(best);
}

Pse Read(const std::string& name, const char* password, PseUse use) {
  if (name.starts_with("pkcs11:")) return ReadHardware(name, password, use);
  const Secret content = ReadPseFile(PsePath(name));
  return IsPem(content) ? ReadPem(content, password, use) : ReadPkcs12(content, password);
}

}  // namespace

Pse LoadPse(const std::string& name, const char* password, PseUse use) {
  Pse pse = Read(name, password, use);
  if (use == PseUse::kSign && !pse.key) throw Failure(DKV_ERR_PSE_NO_KEY, "key");
  if (pse.key) ChooseOwn(pse, use);
  if (!pse.own && pse.further.empty()) throw Failure(DKV_ERR_PSE_NO_CERT, "certificates");
  return pse;
}

}  // namespace tolven::crypto

#pragma once

#include <cstdint>
#include <vector>

#include "openssl.h"
#include "pse.h"

namespace tolven::crypto {

// The certificates of a profile as anchors of trust; nothing of the machine's own store.
class Trust {
 public:
  // Trusts nobody.
  Trust() : Trust(Certs()) {}
  explicit Trust(const Pse& pse);
  explicit Trust(Certs anchors);

  X509_STORE* store() const { return m_store.get(); }
  const Certs& anchors() const { return m_anchors; }

 private:
  StorePtr m_store;
  Certs m_anchors;
};

// Below this strength no key and no signature counts: it excludes SHA-1, MD5 and RSA below 2048 bits.
inline constexpr int kSecurityBits = 112;
inline constexpr int kSecurityLevel = 2;  // OpenSSL's name for it

// Stands for "at any time" in CheckChain.
inline constexpr std::int64_t kAnyTime = -2;

// What a chain is for: an extended key usage of an issuer on the way limits what it may vouch for.
enum class ChainPurpose { kCodeSigning, kTimeStamping };

// A way from the certificate to an anchor, over certificates of `helpers` that need no trust themselves, all
// valid at `time` (seconds since 1970; DKV_NO_TIME now, kAnyTime without looking at the clock). One good way
// is enough: an expired or limited namesake of an issuer does not decide. The codes are DKV_OK and those from
// DKV_ERR_WRONG_SIGNER to DKV_ERR_WEAK that are about chains.
int CheckChain(const Trust& trust, X509* certificate, const Certs& helpers, std::int64_t time,
               ChainPurpose purpose = ChainPurpose::kCodeSigning);

// True iff the certificate is valid at `time`, which is as in CheckChain.
bool IsValidAt(const X509* certificate, std::int64_t time);

// True iff `issuer` has the name that issued the certificate and its key has signed it.
bool HasIssued(X509* issuer, X509* certificate);

// True iff the certificate may be used for time stamps and for nothing else.
bool IsForTimeStampsOnly(X509* certificate);

// DKV_ERR_KEY_USAGE when the certificate has a key usage without digitalSignature, DKV_ERR_EXT_KEY_USAGE when
// it has an extended key usage without codeSigning. A certificate without such an extension is not restricted
// (RFC 5280, 4.2.1.3 and 4.2.1.12).
int CheckSignerUsage(X509* certificate);

// The certificate whose key has signed this one, out of the given ones; itself when self-signed, null when
// none. The signature proves it, so it does not matter where it came from.
X509* FindIssuer(X509* certificate, const std::vector<const Certs*>& candidates);

// True iff the digest is one of those above kSecurityBits.
bool IsStrongDigest(int nid);

}  // namespace tolven::crypto

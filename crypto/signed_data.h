#pragma once

#include <cstdint>
#include <string>

#include "api.h"
#include "chain.h"
#include "openssl.h"

namespace tolven::crypto {

// What a signed-data object (RFC 5652) is expected to be.
enum class SignedKind {
  kDetached,  // a signature over content of type data that is not inside
  kToken,     // a time stamp token: content of type TSTInfo (RFC 3161), inside
};

// One signed-data object with exactly one signer. Whatever else it is, the constructor fails: DKV_ERR_ASN1,
// DKV_ERR_TRAILING_DATA, DKV_ERR_EMBEDDED, DKV_ERR_SIGNER_COUNT. The checks return DKV_OK or what is wrong.
class SignedData {
 public:
  SignedData(Bytes der, SignedKind kind);

  CMS_SignerInfo* signer() const { return m_signer; }
  CMS_ContentInfo* cms() const { return m_cms.get(); }
  const Certs& certificates() const { return m_certificates; }
  // The content inside; empty for a detached signature.
  Bytes content() const;
  // The bytes that the signer's key made, over which a time stamp is given.
  Bytes signatureValue() const;
  // "serial issuer" of the signer, certificate or not.
  std::string signerId() const;
  // What the signer says, or DKV_NO_TIME.
  std::int64_t signingTime() const;
  // The certificates that the signer may have, of the profile and then of the object; a signer known by a key
  // identifier may have several of one key. Empty when neither has one.
  Certs FindSigners(const Trust& trust) const;
  // The first of them, or null.
  CertPtr FindSigner(const Trust& trust) const;

  // Digest of the content, value of the signature, strength of the digest, attributes: all that can be said
  // without trust.
  int CheckSignature(Bytes content, X509* certificate, const Trust& trust) const;

 private:
  int DigestNid() const;
  int CheckDigest(Bytes content) const;
  int CheckAttributes(X509* certificate, const Trust& trust) const;

  SignedKind m_kind;
  CmsPtr m_cms;
  CMS_SignerInfo* m_signer = nullptr;  // inside m_cms
  Certs m_certificates;
};

}  // namespace tolven::crypto

#pragma once

#include <cstdint>
#include <string>

#include "api.h"
#include "openssl.h"

namespace tolven::crypto {

// A detached signature as it must look (RFC 5652): one DER object, signed data over content of type data that
// is not inside, exactly one signer. Whatever else it is, the constructor fails: DKV_ERR_ASN1,
// DKV_ERR_TRAILING_DATA, DKV_ERR_EMBEDDED, DKV_ERR_SIGNER_COUNT.
class SignedData {
 public:
  explicit SignedData(Bytes der);

  CMS_SignerInfo* signer() const { return m_signer; }
  CMS_ContentInfo* cms() const { return m_cms.get(); }
  const Certs& certificates() const { return m_certificates; }
  // The bytes that the signer's key made, over which a time stamp is given.
  Bytes signatureValue() const;
  // "serial issuer" of the signer, certificate or not.
  std::string signerId() const;

 private:
  CmsPtr m_cms;
  CMS_SignerInfo* m_signer = nullptr;  // inside m_cms
  Certs m_certificates;
};

// The value of a signed attribute that stands there once, with one value of the type (V_ASN1_...); null
// otherwise.
const ASN1_STRING* SignedAttribute(const CMS_SignerInfo* signer, int nid, int type);

}  // namespace tolven::crypto

#include "signing_certificate.h"

#include <openssl/ess.h>

#include "api.h"

namespace tolven::crypto {
namespace {

using Version1Ptr = std::unique_ptr<ESS_SIGNING_CERT, Releaser<ESS_SIGNING_CERT_free>>;
using Version2Ptr = std::unique_ptr<ESS_SIGNING_CERT_V2, Releaser<ESS_SIGNING_CERT_V2_free>>;

// False when the attribute is there but is not one whole object.
template <typename Owner, typename Decode>
bool Read(const CMS_SignerInfo* signer, int nid, Decode decode, Owner& owner) {
  if (CMS_signed_get_attr_by_NID(signer, nid, -1) < 0) return true;
  const ASN1_STRING* der = SignedAttribute(signer, nid, V_ASN1_SEQUENCE);
  if (der == nullptr) return false;
  const unsigned char* at = ASN1_STRING_get0_data(der);
  const unsigned char* const end = at + ASN1_STRING_length(der);
  owner.reset(decode(nullptr, &at, ASN1_STRING_length(der)));
  return owner != nullptr && at == end;
}

}  // namespace

const ASN1_STRING* SignedAttribute(const CMS_SignerInfo* signer, int nid, int type) {
  // -3 asks for the attribute exactly once with exactly one value.
  return static_cast<const ASN1_STRING*>(CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(nid), -3, type));
}

int CheckSigningCertificate(const CMS_SignerInfo* signer, X509* certificate,
                            const std::vector<const Certs*>& known, bool required) {
  Version1Ptr version1;
  Version2Ptr version2;
  if (!Read(signer, NID_id_smime_aa_signingCertificate, d2i_ESS_SIGNING_CERT, version1) ||
      !Read(signer, NID_id_smime_aa_signingCertificateV2, d2i_ESS_SIGNING_CERT_V2, version2)) {
    return DKV_ERR_ATTRIBUTES;
  }
  if (!version1 && !version2) return required ? DKV_ERR_ATTRIBUTES : DKV_OK;

  const CertView certificates(sk_X509_new_null());
  if (!certificates) throw std::bad_alloc();
  Require(sk_X509_push(certificates.get(), certificate) > 0, "known");
  for (const Certs* certs : known) {
    for (const CertPtr& other : *certs) Require(sk_X509_push(certificates.get(), other.get()) > 0, "known");
  }
  const int same = OSSL_ESS_check_signing_certs(version1.get(), version2.get(), certificates.get(), 1);
  return same > 0 ? DKV_OK : DKV_ERR_SIGNING_CERT;
}

}  // namespace tolven::crypto

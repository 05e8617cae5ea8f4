#include "signed_data.h"

#include "certificate.h"

namespace tolven::crypto {

SignedData::SignedData(Bytes der) : m_cms(FromDer<CMS_ContentInfo>(der, d2i_CMS_ContentInfo)) {
  if (OBJ_obj2nid(CMS_get0_type(m_cms.get())) != NID_pkcs7_signed)
    throw Failure(DKV_ERR_ASN1, "no signed data");
  if (OBJ_obj2nid(CMS_get0_eContentType(m_cms.get())) != NID_pkcs7_data)
    throw Failure(DKV_ERR_ASN1, "content type");
  ASN1_OCTET_STRING** content = CMS_get0_content(m_cms.get());
  if (content == nullptr || *content != nullptr) throw Failure(DKV_ERR_EMBEDDED, "content");

  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(m_cms.get());
  if (sk_CMS_SignerInfo_num(signers) != 1) throw Failure(DKV_ERR_SIGNER_COUNT, "signers");
  m_signer = sk_CMS_SignerInfo_value(signers, 0);

  const CertStack carried(CMS_get1_certs(m_cms.get()));
  for (int i = 0; i < sk_X509_num(carried.get()); ++i) {
    m_certificates.push_back(Share(sk_X509_value(carried.get(), i)));
  }
}

Bytes SignedData::signatureValue() const {
  const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(m_signer);
  return {ASN1_STRING_get0_data(value), static_cast<std::size_t>(ASN1_STRING_length(value))};
}

std::string SignedData::signerId() const {
  ASN1_OCTET_STRING* keyId = nullptr;
  X509_NAME* issuer = nullptr;
  ASN1_INTEGER* serial = nullptr;
  if (CMS_SignerInfo_get0_signer_id(m_signer, &keyId, &issuer, &serial) != 1 || serial == nullptr) return {};
  return SerialText(serial) + " " + NameText(issuer);
}

const ASN1_STRING* SignedAttribute(const CMS_SignerInfo* signer, int nid, int type) {
  // -3 asks for the attribute exactly once with exactly one value.
  return static_cast<const ASN1_STRING*>(CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(nid), -3, type));
}

}  // namespace tolven::crypto

#include "signed_data.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <utility>

#include "certificate.h"
#include "signing_certificate.h"

namespace tolven::crypto {
namespace {

int ContentTypeOf(SignedKind kind) {
  return kind == SignedKind::kToken ? NID_id_smime_ct_TSTInfo : NID_pkcs7_data;
}

// Keys whose signatures OpenSSL can check in a message; a failure with another one says nothing about it.
bool IsKnownKey(X509* certificate) {
  EVP_PKEY* key = X509_get0_pubkey(certificate);
  for (const char* type : {"RSA", "RSA-PSS", "EC", "DSA"}) {
    if (key != nullptr && EVP_PKEY_is_a(key, type) == 1) return true;
  }
  ASN1_OBJECT* algorithm = nullptr;
  X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(certificate));
  SetInfo("It is " + ObjectText(algorithm) + ".");
  return false;
}

Bytes BytesOf(const ASN1_STRING* text) {
  return {ASN1_STRING_get0_data(text), static_cast<std::size_t>(ASN1_STRING_length(text))};
}

}  // namespace

SignedData::SignedData(Bytes der, SignedKind kind)
    : m_kind(kind), m_cms(FromDer<CMS_ContentInfo>(der, d2i_CMS_ContentInfo)) {
  if (OBJ_obj2nid(CMS_get0_type(m_cms.get())) != NID_pkcs7_signed)
    throw Failure(DKV_ERR_ASN1, "no signed data");
  if (OBJ_obj2nid(CMS_get0_eContentType(m_cms.get())) != ContentTypeOf(kind)) {
    throw Failure(DKV_ERR_ASN1, "content type");
  }
  ASN1_OCTET_STRING** inside = CMS_get0_content(m_cms.get());
  if (inside == nullptr) throw Failure(DKV_ERR_ASN1, "content");
  if ((*inside != nullptr) != (kind == SignedKind::kToken)) throw Failure(DKV_ERR_EMBEDDED, "content");

  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(m_cms.get());
  if (sk_CMS_SignerInfo_num(signers) != 1) throw Failure(DKV_ERR_SIGNER_COUNT, "signers");
  m_signer = sk_CMS_SignerInfo_value(signers, 0);

  const CertStack carried(CMS_get1_certs(m_cms.get()));
  for (int i = 0; i < sk_X509_num(carried.get()); ++i) {
    m_certificates.push_back(Share(sk_X509_value(carried.get(), i)));
  }
}

Bytes SignedData::content() const {
  const ASN1_OCTET_STRING* inside = *CMS_get0_content(m_cms.get());
  return inside == nullptr ? Bytes() : BytesOf(inside);
}

Bytes SignedData::signatureValue() const {
  return BytesOf(CMS_SignerInfo_get0_signature(m_signer));
}

std::string SignedData::signerId() const {
  ASN1_OCTET_STRING* keyId = nullptr;
  X509_NAME* issuer = nullptr;
  ASN1_INTEGER* serial = nullptr;
  if (CMS_SignerInfo_get0_signer_id(m_signer, &keyId, &issuer, &serial) != 1 || serial == nullptr) return {};
  return SerialText(serial) + " " + NameText(issuer);
}

std::int64_t SignedData::signingTime() const {
  for (const int type : {V_ASN1_UTCTIME, V_ASN1_GENERALIZEDTIME}) {
    if (const ASN1_STRING* time = SignedAttribute(m_signer, NID_pkcs9_signingTime, type))
      return ToSeconds(time);
  }
  return DKV_NO_TIME;
}

Certs SignedData::FindSigners(const Trust& trust) const {
  constexpr std::size_t kEnough = 8;
  Certs found;
  for (const Certs* certs : {&trust.anchors(), &m_certificates}) {
    for (const CertPtr& certificate : *certs) {
      if (found.size() == kEnough) return found;
      if (CMS_SignerInfo_cert_cmp(m_signer, certificate.get()) != 0) continue;
      const bool known = std::any_of(found.begin(), found.end(), [&](const CertPtr& other) {
        return X509_cmp(other.get(), certificate.get()) == 0;
      });
      if (!known) found.push_back(Share(certificate.get()));
    }
  }
  return found;
}

CertPtr SignedData::FindSigner(const Trust& trust) const {
  Certs found = FindSigners(trust);
  return found.empty() ? nullptr : std::move(found.front());
}

int SignedData::CheckSignature(Bytes content, X509* certificate, const Trust& trust) const {
  const int digest = CheckDigest(content);
  if (digest != DKV_OK) return digest;
  if (!IsKnownKey(certificate)) return DKV_ERR_ALG_NOT_SUPPORTED;
  CMS_SignerInfo_set1_signer_cert(m_signer, certificate);
  if (CMS_SignerInfo_verify(m_signer) != 1) {
    const std::string algorithm = UnsupportedAlgorithm();
    if (algorithm.empty()) return DKV_ERR_SIGNATURE_VALUE;
    SetInfo("It is " + algorithm + ".");
    return DKV_ERR_ALG_NOT_SUPPORTED;
  }
  if (!IsStrongDigest(DigestNid())) return DKV_ERR_WEAK;
  return CheckAttributes(certificate, trust);
}

int SignedData::DigestNid() const {
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(m_signer, nullptr, nullptr, &digest, nullptr);
  return OBJ_obj2nid(digest->algorithm);
}

// The content against the signed digest. A signature without attributes would be over the content itself; we
// make none, and taking one would let a set of attributes pass for content.
int SignedData::CheckDigest(Bytes content) const {
  const ASN1_STRING* given = SignedAttribute(m_signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING);
  const EVP_MD* md = EVP_get_digestbynid(DigestNid());
  if (given == nullptr) return DKV_ERR_ATTRIBUTES;
  if (md == nullptr) {
    X509_ALGOR* digest = nullptr;
    CMS_SignerInfo_get0_algs(m_signer, nullptr, nullptr, &digest, nullptr);
    SetInfo("It is " + ObjectText(digest->algorithm) + ".");
    return DKV_ERR_ALG_NOT_SUPPORTED;
  }
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> value{};
  unsigned length = 0;
  Require(EVP_Digest(content.data(), content.size(), value.data(), &length, md, nullptr) == 1, "digest");
  const bool same = ASN1_STRING_length(given) == static_cast<int>(length) &&
                    CRYPTO_memcmp(ASN1_STRING_get0_data(given), value.data(), length) == 0;
  return same ? DKV_OK : DKV_ERR_DIGEST;
}

int SignedData::CheckAttributes(X509* certificate, const Trust& trust) const {
  const auto* type =
      reinterpret_cast<const ASN1_OBJECT*>(SignedAttribute(m_signer, NID_pkcs9_contentType, V_ASN1_OBJECT));
  if (type == nullptr || OBJ_obj2nid(type) != ContentTypeOf(m_kind)) return DKV_ERR_ATTRIBUTES;
  // Tokens must have the attribute (RFC 3161, 2.4.2); other signatures are bound by it when they have it.
  return CheckSigningCertificate(m_signer, certificate, {&m_certificates, &trust.anchors()},
                                 m_kind == SignedKind::kToken);
}

}  // namespace tolven::crypto

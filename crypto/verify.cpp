#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ess.h>

#include <array>
#include <cstring>
#include <string_view>

#include "api.h"
#include "certificate.h"
#include "chain.h"
#include "signed_data.h"
#include "token.h"

// Judging a signature. Strict: what is not expected is refused, and the signer's certificate counts only when
// a certificate of the profile vouches for it.
namespace tolven::crypto {
namespace {

CertPtr FindSigner(const SignedData& data, const Trust& trust) {
  for (const Certs* certs : {&trust.anchors(), &data.certificates()}) {
    for (const CertPtr& certificate : *certs) {
      if (CMS_SignerInfo_cert_cmp(data.signer(), certificate.get()) == 0) return Share(certificate.get());
    }
  }
  return nullptr;
}

int DigestNid(CMS_SignerInfo* signer) {
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  return OBJ_obj2nid(digest->algorithm);
}

// The content against the signed digest. A signature without attributes would be over the content itself; we
// make none, and taking one would let a set of attributes pass for content.
int CheckDigest(CMS_SignerInfo* signer, Bytes content) {
  const ASN1_STRING* given = SignedAttribute(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING);
  const EVP_MD* md = EVP_get_digestbynid(DigestNid(signer));
  if (given == nullptr) return DKV_ERR_ATTRIBUTES;
  if (md == nullptr) return DKV_ERR_WEAK;
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> value{};
  unsigned length = 0;
  Require(EVP_Digest(content.data(), content.size(), value.data(), &length, md, nullptr) == 1, "digest");
  const bool same = ASN1_STRING_length(given) == static_cast<int>(length) &&
                    CRYPTO_memcmp(ASN1_STRING_get0_data(given), value.data(), length) == 0;
  return same ? DKV_OK : DKV_ERR_DIGEST;
}

int CheckSignatureValue(CMS_SignerInfo* signer, X509* certificate) {
  CMS_SignerInfo_set1_signer_cert(signer, certificate);
  return CMS_SignerInfo_verify(signer) == 1 ? DKV_OK : DKV_ERR_SIGNATURE_VALUE;
}

// RFC 5035: binds the signature to one certificate, not just to a key and a name.
int CheckSigningCertificate(const SignedData& data, X509* certificate, const Trust& trust) {
  if (CMS_signed_get_attr_by_NID(data.signer(), NID_id_smime_aa_signingCertificateV2, -1) < 0) return DKV_OK;
  const ASN1_STRING* der =
      SignedAttribute(data.signer(), NID_id_smime_aa_signingCertificateV2, V_ASN1_SEQUENCE);
  if (der == nullptr) return DKV_ERR_ATTRIBUTES;
  const unsigned char* at = ASN1_STRING_get0_data(der);
  const std::unique_ptr<ESS_SIGNING_CERT_V2, Releaser<ESS_SIGNING_CERT_V2_free>> named(
      d2i_ESS_SIGNING_CERT_V2(nullptr, &at, ASN1_STRING_length(der)));
  if (!named || at != ASN1_STRING_get0_data(der) + ASN1_STRING_length(der)) return DKV_ERR_ATTRIBUTES;

  // The signer's certificate must be named first; the further ones must be among those we know.
  const CertView known(sk_X509_new_null());
  if (!known) throw std::bad_alloc();
  Require(sk_X509_push(known.get(), certificate) > 0, "known");
  for (const Certs* certs : {&data.certificates(), &trust.anchors()}) {
    for (const CertPtr& other : *certs) Require(sk_X509_push(known.get(), other.get()) > 0, "known");
  }
  return OSSL_ESS_check_signing_certs(nullptr, named.get(), known.get(), 1) > 0 ? DKV_OK
                                                                                : DKV_ERR_SIGNING_CERT;
}

int CheckAttributes(const SignedData& data, X509* certificate, const Trust& trust) {
  const auto* type = reinterpret_cast<const ASN1_OBJECT*>(
      SignedAttribute(data.signer(), NID_pkcs9_contentType, V_ASN1_OBJECT));
  if (type == nullptr || OBJ_obj2nid(type) != NID_pkcs7_data) return DKV_ERR_ATTRIBUTES;
  return CheckSigningCertificate(data, certificate, trust);
}

std::int64_t SigningTime(const CMS_SignerInfo* signer) {
  for (const int type : {V_ASN1_UTCTIME, V_ASN1_GENERALIZEDTIME}) {
    if (const ASN1_STRING* time = SignedAttribute(signer, NID_pkcs9_signingTime, type))
      return ToSeconds(time);
  }
  return DKV_NO_TIME;
}

void DescribeSigner(X509* certificate, X509* issuer, SigRcpDkvInfo& info) {
  SetText(info.id, IdText(certificate));
  SetText(info.subject, SubjectText(certificate));
  SetText(info.issuer, IssuerText(certificate));
  SetOctets(info.certificate, certificate);
  SetOctets(info.issuerCertificate, issuer);
}

// Looks at the token, if there is one. Returns what it means for the signer; fills the members about it.
int JudgeToken(const SignedData& data, const Trust& trust, bool wanted, SigRcpDkvInfo& info) {
  FoundToken found = FindToken(data.signer());
  info.tokenPresent = found.present ? 1 : 0;
  if (!found.present) {
    info.tokenResult = wanted ? DKV_ERR_TOKEN_MISSING : DKV_OK;
    return info.tokenResult;
  }
  info.tokenResult = found.rc;
  if (found.rc != DKV_OK) return DKV_ERR_TOKEN;

  const TokenFinding finding = CheckToken(found.token.get(), data.signatureValue(), trust);
  info.tokenResult = finding.rc;
  info.tokenTime = finding.time;
  if (finding.tsa) SetText(info.tsaId, IdText(finding.tsa.get()));
  SetOctets(info.tsaCertificate, finding.tsa.get());
  SetOctets(info.tsaIssuerCertificate, finding.issuer.get());
  // A weak token must not read like a weak signature.
  return finding.rc == DKV_ERR_WEAK ? DKV_ERR_TOKEN : finding.rc;
}

// The checks in the order that dkv.h promises; the first that fails is the result.
int Judge(const SignedData& data, Bytes content, const Trust& trust, bool tokenWanted, SigRcpDkvInfo& info) {
  const CertPtr certificate = FindSigner(data, trust);
  if (!certificate) return DKV_ERR_SIGNER_CERT;
  X509* issuer = FindIssuer(certificate.get(), {&trust.anchors(), &data.certificates()});
  DescribeSigner(certificate.get(), issuer, info);
  info.signingTime = SigningTime(data.signer());

  int rc = CheckDigest(data.signer(), content);
  if (rc == DKV_OK) rc = CheckSignatureValue(data.signer(), certificate.get());
  if (rc == DKV_OK && !IsStrongDigest(DigestNid(data.signer()))) rc = DKV_ERR_WEAK;
  if (rc == DKV_OK) rc = CheckAttributes(data, certificate.get(), trust);
  if (rc != DKV_OK) return rc;

  // Whose signature it is does not depend on the clock, and must be known before the token is asked: another
  // profile may trust both.
  rc = CheckChain(trust, certificate.get(), data.certificates(), kAnyTime);
  if (rc == DKV_ERR_WRONG_SIGNER) return rc;
  const int token = JudgeToken(data, trust, tokenWanted, info);
  if (rc == DKV_OK) rc = token;
  if (rc == DKV_OK) rc = CheckChain(trust, certificate.get(), data.certificates(), info.tokenTime);
  if (rc == DKV_OK) rc = CheckSignerUsage(certificate.get());
  return rc;
}

// A profile that is not there trusts nobody; every other trouble with it is the caller's to know.
Trust LoadTrust(const SigRcpDkvInfo& key, int& detail) {
  try {
    return Trust(LoadPse(key.profile, key.password, PseUse::kTrust));
  } catch (const Failure& failure) {
    if (failure.rc() != DKV_ERR_NO_PSE) throw;
    detail = DKV_ERR_NO_PSE;
    return Trust();
  }
}

bool IsTokenWanted(const char* format) {
  if (std::strcmp(format, "PKCS7-TSTAMP") == 0) return true;
  if (std::strcmp(format, "PKCS7") == 0) return false;
  throw Failure(DKV_ERR_FORMAT, "format");
}

}  // namespace

extern "C" {

DKV_API int DkvEncode(const char* format, const DkvOctetstring* bytes, DkvOctetstring** content) {
  if (format == nullptr || content == nullptr) return DKV_ERR_ARGUMENT;
  *content = nullptr;
  return Guarded(__func__, [&] {
    IsTokenWanted(format);
    // A detached signature is over the bytes as they are.
    *content = MakeOctets(Input(bytes)).release();
    return DKV_OK;
  });
}

DKV_API int DkvVerify(const char* format, const DkvOctetstring* content, const DkvOctetstring* signature,
                      const SigRcpDkvInfo* key, SigRcpDkvInfoList** signers) {
  if (format == nullptr || signers == nullptr) return DKV_ERR_ARGUMENT;
  *signers = nullptr;
  return Guarded(__func__, [&]() -> int {
    const bool tokenWanted = IsTokenWanted(format);
    const Bytes bytes = Input(content);
    const SignedData data(Input(signature));
    int detail = DKV_OK;
    const Trust trust = LoadTrust(InputSigner(key), detail);

    SignerPtr info = MakeSigner();
    SetText(info->id, data.signerId());
    info->result = Judge(data, bytes, trust, tokenWanted, *info);
    if (info->result == DKV_ERR_WRONG_SIGNER) info->detail = detail;
    const bool good = info->result == DKV_OK;
    *signers = MakeList(std::move(info));
    return good ? DKV_OK : DKV_ERR_SIGNER;
  });
}

}  // extern "C"
}  // namespace tolven::crypto

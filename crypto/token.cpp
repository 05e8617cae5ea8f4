#include "token.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <array>
#include <cstdlib>
#include <ctime>

#include "api.h"
#include "certificate.h"

namespace tolven::crypto {
namespace {

// Clocks differ; a token from further in the future than this is not believed.
constexpr std::int64_t kClockSkewSeconds = 300;

struct ExtendedUsageReleaser {
  void operator()(EXTENDED_KEY_USAGE* usage) const { sk_ASN1_OBJECT_pop_free(usage, ASN1_OBJECT_free); }
};

// RFC 3161, 2.3: the extended key usage is critical and has timeStamping alone.
bool MayStamp(X509* certificate) {
  int critical = 0;
  const std::unique_ptr<EXTENDED_KEY_USAGE, ExtendedUsageReleaser> usage(
      static_cast<EXTENDED_KEY_USAGE*>(X509_get_ext_d2i(certificate, NID_ext_key_usage, &critical, nullptr)));
  if (!usage || critical != 1 || sk_ASN1_OBJECT_num(usage.get()) != 1 ||
      OBJ_obj2nid(sk_ASN1_OBJECT_value(usage.get(), 0)) != NID_time_stamp) {
    return false;
  }
  constexpr std::uint32_t kSigning = KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION;
  return (X509_get_extension_flags(certificate) & EXFLAG_KUSAGE) == 0 ||
         (X509_get_key_usage(certificate) & kSigning) != 0;
}

Certs CertificatesOf(PKCS7* token) {
  Certs certificates;
  STACK_OF(X509)* carried = token->d.sign->cert;
  for (int i = 0; i < sk_X509_num(carried); ++i) certificates.push_back(Share(sk_X509_value(carried, i)));
  return certificates;
}

// The one signer's certificate, from the token or from the profile.
CertPtr FindTsa(PKCS7* token, const Trust& trust) {
  const CertView anchors(sk_X509_new_null());
  if (!anchors) throw std::bad_alloc();
  for (const CertPtr& anchor : trust.anchors()) {
    Require(sk_X509_push(anchors.get(), anchor.get()) > 0, "anchors");
  }
  const CertView signers(PKCS7_get0_signers(token, anchors.get(), 0));
  if (sk_X509_num(signers.get()) != 1) return nullptr;
  return Share(sk_X509_value(signers.get(), 0));
}

// The token's own digest algorithm, which OpenSSL's security level does not look at.
bool IsStronglySigned(PKCS7* token) {
  STACK_OF(PKCS7_SIGNER_INFO)* infos = PKCS7_get_signer_info(token);
  if (sk_PKCS7_SIGNER_INFO_num(infos) != 1) return false;
  const PKCS7_SIGNER_INFO* info = sk_PKCS7_SIGNER_INFO_value(infos, 0);
  return IsStrongDigest(OBJ_obj2nid(info->digest_alg->algorithm));
}

// Signature, attributes and signing certificate of the token. The chain is walked again by the way, with the
// same anchors and at the same time.
bool SignatureIsRight(PKCS7* token, const Trust& trust, std::int64_t time) {
  const StorePtr store(X509_STORE_new());
  if (!store) throw std::bad_alloc();
  for (const CertPtr& anchor : trust.anchors()) {
    Require(X509_STORE_add_cert(store.get(), anchor.get()) == 1, "trust store");
  }
  X509_VERIFY_PARAM* param = X509_STORE_get0_param(store.get());
  X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_PARTIAL_CHAIN);
  X509_VERIFY_PARAM_set_auth_level(param, kSecurityLevel);
  X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(time));
  X509* signer = nullptr;
  const int good = TS_RESP_verify_signature(token, nullptr, store.get(), &signer);
  const CertPtr owner(signer);
  return good == 1;
}

int Judge(PKCS7* token, Bytes signatureValue, const Trust& trust, TokenFinding& finding) {
  // The content of a PKCS7 object is optional: one that only says it is signed data has none.
  if (PKCS7_type_is_signed(token) == 0 || token->d.sign == nullptr) return DKV_ERR_TOKEN;
  finding.tsa = FindTsa(token, trust);
  const TstInfoPtr info(PKCS7_to_TS_TST_INFO(token));
  if (!info || TS_TST_INFO_get_version(info.get()) != 1) return DKV_ERR_TOKEN;
  if (!ImprintMatches(TS_TST_INFO_get_msg_imprint(info.get()), signatureValue)) return DKV_ERR_TOKEN;
  const std::int64_t time = ToSeconds(TS_TST_INFO_get_time(info.get()));
  if (time < 0 || time > std::time(nullptr) + kClockSkewSeconds) return DKV_ERR_TOKEN;
  if (!finding.tsa) return DKV_ERR_TOKEN;

  const Certs carried = CertificatesOf(token);
  finding.issuer = [&]() -> CertPtr {
    X509* issuer = FindIssuer(finding.tsa.get(), {&trust.anchors(), &carried});
    return issuer == nullptr ? nullptr : Share(issuer);
  }();
  if (!IsStronglySigned(token)) return DKV_ERR_WEAK;
  if (!MayStamp(finding.tsa.get())) return DKV_ERR_TSA_CERT;
  const int chain = CheckChain(trust, finding.tsa.get(), carried, time);
  if (chain == DKV_ERR_WEAK) return chain;
  if (chain != DKV_OK) return DKV_ERR_TOKEN_TRUST;
  if (!SignatureIsRight(token, trust, time)) return DKV_ERR_TOKEN;
  finding.time = time;
  return DKV_OK;
}

}  // namespace

bool ImprintMatches(TS_MSG_IMPRINT* imprint, Bytes data) {
  const X509_ALGOR* algorithm = TS_MSG_IMPRINT_get_algo(imprint);
  const int nid = OBJ_obj2nid(algorithm->algorithm);
  const EVP_MD* md = EVP_get_digestbynid(nid);
  if (md == nullptr || !IsStrongDigest(nid)) return false;
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> value{};
  unsigned length = 0;
  Require(EVP_Digest(data.data(), data.size(), value.data(), &length, md, nullptr) == 1, "imprint");
  const ASN1_OCTET_STRING* given = TS_MSG_IMPRINT_get_msg(imprint);
  return ASN1_STRING_length(given) == static_cast<int>(length) &&
         CRYPTO_memcmp(ASN1_STRING_get0_data(given), value.data(), length) == 0;
}

TokenFinding CheckToken(PKCS7* token, Bytes signatureValue, const Trust& trust) {
  TokenFinding finding{DKV_ERR_TOKEN, DKV_NO_TIME, nullptr, nullptr};
  finding.rc = Judge(token, signatureValue, trust, finding);
  return finding;
}

FoundToken FindToken(CMS_SignerInfo* signer) {
  const int at = CMS_unsigned_get_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, -1);
  if (at < 0) return {false, DKV_OK, nullptr};
  // Of two tokens nobody could say which one counts.
  X509_ATTRIBUTE* attribute = CMS_unsigned_get_attr(signer, at);
  if (CMS_unsigned_get_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, at) >= 0 ||
      X509_ATTRIBUTE_count(attribute) != 1) {
    return {true, DKV_ERR_TOKEN, nullptr};
  }
  const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
  if (value == nullptr || value->type != V_ASN1_SEQUENCE) return {true, DKV_ERR_TOKEN, nullptr};
  const ASN1_STRING* der = value->value.sequence;
  const unsigned char* bytes = ASN1_STRING_get0_data(der);
  Pkcs7Ptr token(d2i_PKCS7(nullptr, &bytes, ASN1_STRING_length(der)));
  const bool whole = bytes == ASN1_STRING_get0_data(der) + ASN1_STRING_length(der);
  if (!token || !whole) return {true, DKV_ERR_TOKEN, nullptr};
  return {true, DKV_OK, std::move(token)};
}

}  // namespace tolven::crypto

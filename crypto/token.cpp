#include "token.h"

#include <openssl/crypto.h>

#include <array>
#include <ctime>
#include <string>
#include <utility>

#include "api.h"
#include "certificate.h"
#include "signed_data.h"

namespace tolven::crypto {
namespace {

// Clocks differ; a token from further in the future than this is not believed.
constexpr std::int64_t kClockSkewSeconds = 300;

constexpr char kTrustFile[] = "QELtimestamp";

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

// What the token says; null when that is none of RFC 3161, or has bytes behind it.
TstInfoPtr ReadInfo(Bytes der) {
  const unsigned char* at = der.data();
  TstInfoPtr info(d2i_TS_TST_INFO(nullptr, &at, static_cast<long>(der.size())));
  if (!info || at != der.data() + der.size() || TS_TST_INFO_get_version(info.get()) != 1) return nullptr;
  return info;
}

int Judge(const SignedData& token, Bytes signatureValue, const Trust& trust, TokenFinding& finding) {
  finding.tsa = token.FindSigner(trust);
  if (finding.tsa) {
    X509* issuer = FindIssuer(finding.tsa.get(), {&trust.anchors(), &token.certificates()});
    if (issuer != nullptr) finding.issuer = Share(issuer);
  }
  const TstInfoPtr info = ReadInfo(token.content());
  if (!info || !ImprintMatches(TS_TST_INFO_get_msg_imprint(info.get()), signatureValue)) return DKV_ERR_TOKEN;
  const std::int64_t time = ToSeconds(TS_TST_INFO_get_time(info.get()));
  if (time < 0 || time > std::time(nullptr) + kClockSkewSeconds) return DKV_ERR_TOKEN;
  if (!finding.tsa) return DKV_ERR_TOKEN;

  const int signature = token.CheckSignature(token.content(), finding.tsa.get(), trust);
  if (signature != DKV_OK) return signature == DKV_ERR_WEAK ? DKV_ERR_WEAK : DKV_ERR_TOKEN;
  if (!MayStamp(finding.tsa.get())) return DKV_ERR_TSA_CERT;
  const int chain =
      CheckChain(trust, finding.tsa.get(), token.certificates(), time, ChainPurpose::kTimeStamping);
  if (chain != DKV_OK) {
    SetInfo(std::string("The authorities that count are those in QELtimestamp.pse in SECUDIR") +
            (HasPse(kTrustFile) ? "." : ", which is not there."));
    return chain == DKV_ERR_WEAK ? DKV_ERR_WEAK : DKV_ERR_TOKEN_TRUST;
  }
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

Trust TimeStampTrust(const Trust& trust) {
  if (HasPse(kTrustFile)) return Trust(LoadPse(kTrustFile, nullptr, PseUse::kTrust));
  Certs limited;
  for (const CertPtr& anchor : trust.anchors()) {
    if (IsForTimeStampsOnly(anchor.get())) limited.push_back(Share(anchor.get()));
  }
  return Trust(std::move(limited));
}

TokenFinding CheckToken(Bytes token, Bytes signatureValue, const Trust& trust) {
  TokenFinding finding{DKV_ERR_TOKEN, DKV_NO_TIME, nullptr, nullptr};
  try {
    finding.rc = Judge(SignedData(token, SignedKind::kToken), signatureValue, trust, finding);
  } catch (const Failure& failure) {
    Trace(kTraceError, "token: %d %s", failure.rc(), failure.what());
    finding.rc = DKV_ERR_TOKEN;
  }
  return finding;
}

FoundToken FindToken(CMS_SignerInfo* signer) {
  const int at = CMS_unsigned_get_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, -1);
  if (at < 0) return {false, DKV_OK, {}};
  // Of two tokens nobody could say which one counts.
  X509_ATTRIBUTE* attribute = CMS_unsigned_get_attr(signer, at);
  if (CMS_unsigned_get_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, at) >= 0 ||
      X509_ATTRIBUTE_count(attribute) != 1) {
    return {true, DKV_ERR_TOKEN, {}};
  }
  const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
  if (value == nullptr || value->type != V_ASN1_SEQUENCE) return {true, DKV_ERR_TOKEN, {}};
  const ASN1_STRING* der = value->value.sequence;
  return {true, DKV_OK, {ASN1_STRING_get0_data(der), static_cast<std::size_t>(ASN1_STRING_length(der))}};
}

}  // namespace tolven::crypto

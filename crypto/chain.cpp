#include "chain.h"

#include <openssl/err.h>
#include <openssl/objects.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "api.h"

namespace tolven::crypto {
namespace {

int ToRc(int error) {
  switch (error) {
    case X509_V_OK:
      return DKV_OK;
    case X509_V_ERR_OUT_OF_MEM:
      return DKV_ERR_MEMORY;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_UNTRUSTED:
    // An anchor of the issuer's name with another key: two keys of one name, as when a test key was made
    // anew.
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
      return DKV_ERR_WRONG_SIGNER;
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return DKV_ERR_EXPIRED;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return DKV_ERR_NOT_YET_VALID;
    case X509_V_ERR_EE_KEY_TOO_SMALL:
    case X509_V_ERR_CA_KEY_TOO_SMALL:
    case X509_V_ERR_CA_MD_TOO_WEAK:
      return DKV_ERR_WEAK;
    default:
      return DKV_ERR_UNTRUSTED;
  }
}

// Stricter than the default, which still takes version 1 certificates and self-signed oddities as
// authorities.
bool IssuersAreAuthorities(STACK_OF(X509) * chain) {
  for (int i = 1; i < sk_X509_num(chain); ++i) {
    if (X509_check_ca(sk_X509_value(chain, i)) != 1) return false;
  }
  return true;
}

void SetTime(X509_STORE_CTX* context, std::int64_t time) {
  X509_VERIFY_PARAM* param = X509_STORE_CTX_get0_param(context);
  if (time == kAnyTime) {
    X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_NO_CHECK_TIME);
  } else if (time != DKV_NO_TIME) {
    X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(time));
  }
}

Certs CertificatesOf(const Pse& pse) {
  Certs certificates;
  if (pse.own) certificates.push_back(Share(pse.own.get()));
  for (const CertPtr& certificate : pse.further) certificates.push_back(Share(certificate.get()));
  return certificates;
}

// Ways that are looked at before the search ends: certificates of strangers must not keep us busy.
constexpr int kMaxWays = 16;
constexpr int kMaxSignatureChecks = 256;
constexpr std::size_t kMaxDepth = 16;

// An issuer may vouch for what its extended key usage allows, and for anything without one (RFC 5280,
// 4.2.1.12 is about the certificate itself; that it limits what is issued is what every other program holds).
bool MayVouchFor(X509* issuer, ChainPurpose purpose) {
  if ((X509_get_extension_flags(issuer) & EXFLAG_XKUSAGE) == 0) return true;
  const std::uint32_t wanted = purpose == ChainPurpose::kCodeSigning ? XKU_CODE_SIGN : XKU_TIMESTAMP;
  return (X509_get_extended_key_usage(issuer) & (wanted | XKU_ANYEKU)) != 0;
}

// Tries the ways from a certificate to the anchors one by one, depth first, those that are valid at the time
// before the others. OpenSSL alone would follow the first issuer of a fitting name and judge only that way.
class WaySearch {
 public:
  WaySearch(const Trust& trust, const Certs& helpers, std::int64_t time, ChainPurpose purpose)
      : m_trust(trust), m_helpers(helpers), m_time(time), m_purpose(purpose) {}

  int Run(X509* certificate) {
    m_way.push_back(certificate);
    Walk();
    ERR_clear_error();
    return m_result;
  }

 private:
  bool IsAnchor(const X509* certificate) const;
  std::vector<X509*> Issuers(X509* certificate);
  void Walk();
  int JudgeWay() const;

  const Trust& m_trust;
  const Certs& m_helpers;
  const std::int64_t m_time;
  const ChainPurpose m_purpose;
  std::vector<X509*> m_way;  // from the certificate upwards
  int m_result = DKV_ERR_WRONG_SIGNER;
  int m_ways = 0;
  int m_signatureChecks = 0;
};

bool WaySearch::IsAnchor(const X509* certificate) const {
  return std::any_of(m_trust.anchors().begin(), m_trust.anchors().end(),
                     [&](const CertPtr& anchor) { return X509_cmp(anchor.get(), certificate) == 0; });
}

std::vector<X509*> WaySearch::Issuers(X509* certificate) {
  std::vector<X509*> issuers;
  for (const Certs* certs : {&m_trust.anchors(), &m_helpers}) {
    for (const CertPtr& candidate : *certs) {
      const auto isSame = [&](const X509* other) { return X509_cmp(other, candidate.get()) == 0; };
      if (std::any_of(m_way.begin(), m_way.end(), isSame) ||
          std::any_of(issuers.begin(), issuers.end(), isSame)) {
        continue;
      }
      if (X509_NAME_cmp(X509_get_subject_name(candidate.get()), X509_get_issuer_name(certificate)) != 0 ||
          ++m_signatureChecks > kMaxSignatureChecks) {
        continue;
      }
      if (HasIssued(candidate.get(), certificate)) issuers.push_back(candidate.get());
    }
  }
  std::stable_partition(issuers.begin(), issuers.end(),
                        [this](const X509* issuer) { return IsValidAt(issuer, m_time); });
  return issuers;
}

// Where an anchor is reached the way ends: what lies above it is in nobody's favour.
void WaySearch::Walk() {
  if (IsAnchor(m_way.back())) {
    const int rc = JudgeWay();
    // The first way that fails says why: it is the most promising one.
    if (rc == DKV_OK || m_ways++ == 0) m_result = rc;
    return;
  }
  if (m_way.size() >= kMaxDepth) return;
  for (X509* issuer : Issuers(m_way.back())) {
    if (m_result == DKV_OK || m_ways >= kMaxWays) return;
    m_way.push_back(issuer);
    Walk();
    m_way.pop_back();
  }
}

int WaySearch::JudgeWay() const {
  const StorePtr store(X509_STORE_new());
  const CertView untrusted(sk_X509_new_null());
  const StoreCtxPtr context(X509_STORE_CTX_new());
  if (!store || !untrusted || !context) throw std::bad_alloc();
  // A certificate of the profile is trusted as it is, whether it is a root or not.
  X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN);
  X509_VERIFY_PARAM_set_auth_level(X509_STORE_get0_param(store.get()), kSecurityLevel);
  Require(X509_STORE_add_cert(store.get(), m_way.back()) == 1, "anchor");
  for (std::size_t i = 1; i + 1 < m_way.size(); ++i) {
    Require(sk_X509_push(untrusted.get(), m_way[i]) > 0, "helpers");
  }
  Require(X509_STORE_CTX_init(context.get(), store.get(), m_way.front(), untrusted.get()) == 1, "chain");
  SetTime(context.get(), m_time);

  if (X509_verify_cert(context.get()) != 1) {
    const int error = X509_STORE_CTX_get_error(context.get());
    Trace(kTraceError, "chain: %s, depth %d", X509_verify_cert_error_string(error),
          X509_STORE_CTX_get_error_depth(context.get()));
    // X509_V_OK with a failed call is a failure before the first check.
    return error == X509_V_OK ? DKV_ERR_UNTRUSTED : ToRc(error);
  }
  if (!IssuersAreAuthorities(X509_STORE_CTX_get0_chain(context.get()))) return DKV_ERR_UNTRUSTED;
  const bool allowed = std::all_of(m_way.begin() + 1, m_way.end(),
                                   [this](X509* issuer) { return MayVouchFor(issuer, m_purpose); });
  return allowed ? DKV_OK : DKV_ERR_EXT_KEY_USAGE;
}

}  // namespace

Trust::Trust(const Pse& pse) : Trust(CertificatesOf(pse)) {}

Trust::Trust(Certs anchors) : m_store(X509_STORE_new()), m_anchors(std::move(anchors)) {
  if (!m_store) throw std::bad_alloc();
  // A certificate of the profile is trusted as it is, whether it is a root or not.
  X509_STORE_set_flags(m_store.get(), X509_V_FLAG_PARTIAL_CHAIN);
  X509_VERIFY_PARAM_set_auth_level(X509_STORE_get0_param(m_store.get()), kSecurityLevel);
  for (const CertPtr& anchor : m_anchors) {
    Require(X509_STORE_add_cert(m_store.get(), anchor.get()) == 1, "trust store");
  }
}

int CheckChain(const Trust& trust, X509* certificate, const Certs& helpers, std::int64_t time,
               ChainPurpose purpose) {
  return WaySearch(trust, helpers, time, purpose).Run(certificate);
}

bool IsValidAt(const X509* certificate, std::int64_t time) {
  if (time == kAnyTime) return true;
  std::time_t moment = time == DKV_NO_TIME ? std::time(nullptr) : static_cast<std::time_t>(time);
  return X509_cmp_time(X509_get0_notBefore(certificate), &moment) < 0 &&
         X509_cmp_time(X509_get0_notAfter(certificate), &moment) > 0;
}

bool HasIssued(X509* issuer, X509* certificate) {
  EVP_PKEY* key = X509_get0_pubkey(issuer);
  return X509_NAME_cmp(X509_get_subject_name(issuer), X509_get_issuer_name(certificate)) == 0 &&
         key != nullptr && X509_verify(certificate, key) == 1;
}

bool IsForTimeStampsOnly(X509* certificate) {
  return (X509_get_extension_flags(certificate) & EXFLAG_XKUSAGE) != 0 &&
         X509_get_extended_key_usage(certificate) == XKU_TIMESTAMP;
}

int CheckSignerUsage(X509* certificate) {
  const std::uint32_t flags = X509_get_extension_flags(certificate);
  if ((flags & EXFLAG_INVALID) != 0) return DKV_ERR_UNTRUSTED;
  if ((flags & EXFLAG_KUSAGE) != 0 && (X509_get_key_usage(certificate) & KU_DIGITAL_SIGNATURE) == 0) {
    return DKV_ERR_KEY_USAGE;
  }
  if ((flags & EXFLAG_XKUSAGE) != 0 && (X509_get_extended_key_usage(certificate) & XKU_CODE_SIGN) == 0) {
    return DKV_ERR_EXT_KEY_USAGE;
  }
  return DKV_OK;
}

X509* FindIssuer(X509* certificate, const std::vector<const Certs*>& candidates) {
  if (X509_self_signed(certificate, 1) == 1) return certificate;
  for (const Certs* certs : candidates) {
    for (const CertPtr& candidate : *certs) {
      if (X509_check_issued(candidate.get(), certificate) == X509_V_OK &&
          X509_verify(certificate, X509_get0_pubkey(candidate.get())) == 1) {
        return candidate.get();
      }
    }
  }
  ERR_clear_error();
  return nullptr;
}

bool IsStrongDigest(int nid) {
  switch (nid) {
    case NID_sha256:
    case NID_sha384:
    case NID_sha512:
    case NID_sha512_256:
    case NID_sha3_256:
    case NID_sha3_384:
    case NID_sha3_512:
      return true;
    default:
      return false;
  }
}

}  // namespace tolven::crypto

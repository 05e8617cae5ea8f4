#include "chain.h"

#include <openssl/err.h>
#include <openssl/objects.h>

#include <algorithm>
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

bool IsAnchor(const Trust& trust, const X509* certificate) {
  return std::any_of(trust.anchors().begin(), trust.anchors().end(),
                     [&](const CertPtr& anchor) { return X509_cmp(anchor.get(), certificate) == 0; });
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

int CheckChain(const Trust& trust, X509* certificate, const Certs& helpers, std::int64_t time) {
  if (trust.anchors().size() + helpers.size() > 1 && IsAnchor(trust, certificate)) {
    Certs itself;
    itself.push_back(Share(certificate));
    return CheckChain(Trust(std::move(itself)), certificate, {}, time);
  }
  const CertView untrusted(sk_X509_new_null());
  const StoreCtxPtr context(X509_STORE_CTX_new());
  if (!untrusted || !context) throw std::bad_alloc();
  for (const CertPtr& helper : helpers) {
    Require(sk_X509_push(untrusted.get(), helper.get()) > 0, "helpers");
  }
  Require(X509_STORE_CTX_init(context.get(), trust.store(), certificate, untrusted.get()) == 1, "chain");
  SetTime(context.get(), time);

  if (X509_verify_cert(context.get()) != 1) {
    const int error = X509_STORE_CTX_get_error(context.get());
    Trace(kTraceError, "chain: %s, depth %d", X509_verify_cert_error_string(error),
          X509_STORE_CTX_get_error_depth(context.get()));
    // X509_V_OK with a failed call is a failure before the first check.
    return error == X509_V_OK ? DKV_ERR_UNTRUSTED : ToRc(error);
  }
  return IssuersAreAuthorities(X509_STORE_CTX_get0_chain(context.get())) ? DKV_OK : DKV_ERR_UNTRUSTED;
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

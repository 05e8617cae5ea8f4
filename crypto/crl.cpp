#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <ctime>
#include <string_view>

#include "certificate.h"
#include "chain.h"

// Revocation lists (RFC 5280): decoding, and the look-up of one certificate in its issuer's list.
struct DkvCrlArray {
  std::vector<tolven::crypto::CrlPtr> crls;
};

namespace tolven::crypto {
namespace {

constexpr int kNoReason = -1;

void ReadPem(Bytes file, std::vector<CrlPtr>& crls) {
  const BioPtr bio(BIO_new_mem_buf(file.data(), static_cast<int>(file.size())));
  if (!bio) throw std::bad_alloc();
  while (X509_CRL* crl = PEM_read_bio_X509_CRL(bio.get(), nullptr, nullptr, nullptr)) crls.emplace_back(crl);
  const bool end = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  ERR_clear_error();
  // A list that cannot be read might be the one that matters.
  if (!end) throw Failure(DKV_ERR_ASN1, "PEM");
}

void ReadDer(Bytes file, std::vector<CrlPtr>& crls) {
  const unsigned char* at = file.data();
  const unsigned char* const end = at + file.size();
  while (at < end) {
    CrlPtr crl(d2i_X509_CRL(nullptr, &at, static_cast<long>(end - at)));
    if (!crl) throw Failure(DKV_ERR_ASN1, "DER");
    crls.push_back(std::move(crl));
  }
}

// What the look-up keeps of OpenSSL's complaints.
struct Finding {
  int rc = DKV_OK;
  int reason = kNoReason;
};

int ReasonOf(const X509_REVOKED* entry) {
  const std::unique_ptr<ASN1_ENUMERATED, Releaser<ASN1_ENUMERATED_free>> reason(
      static_cast<ASN1_ENUMERATED*>(X509_REVOKED_get_ext_d2i(entry, NID_crl_reason, nullptr, nullptr)));
  return reason ? static_cast<int>(ASN1_ENUMERATED_get(reason.get())) : CRL_REASON_UNSPECIFIED;
}

int ReasonCode(X509_STORE_CTX* context) {
  X509_CRL* crl = X509_STORE_CTX_get0_current_crl(context);
  X509_REVOKED* entry = nullptr;
  if (crl == nullptr || X509_CRL_get0_by_cert(crl, &entry, X509_STORE_CTX_get_current_cert(context)) == 0) {
    return CRL_REASON_UNSPECIFIED;
  }
  return ReasonOf(entry);
}

// DKV_OK for complaints that are about the certificate, not about the list: the chain was judged elsewhere,
// at another time.
int ToRc(int error) {
  switch (error) {
    case X509_V_ERR_CERT_REVOKED:
      return DKV_ERR_REVOKED;
    case X509_V_ERR_UNABLE_TO_GET_CRL:
    case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
    case X509_V_ERR_DIFFERENT_CRL_SCOPE:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
      return DKV_ERR_CRL_MISSING;
    case X509_V_ERR_CRL_HAS_EXPIRED:
    case X509_V_ERR_CRL_NOT_YET_VALID:
      return DKV_ERR_CRL_OUTDATED;
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return DKV_OK;
    default:
      return DKV_ERR_CRL_INVALID;
  }
}

int OnComplaint(int good, X509_STORE_CTX* context) {
  if (good == 1) return 1;
  auto* finding = static_cast<Finding*>(X509_STORE_CTX_get_app_data(context));
  const int rc = ToRc(X509_STORE_CTX_get_error(context));
  if (rc == DKV_OK) return 1;
  if (finding->rc == DKV_OK) finding->rc = rc;
  if (rc == DKV_ERR_REVOKED) finding->reason = ReasonCode(context);
  return 0;
}

bool IsKnownSignature(const X509_CRL* crl) {
  const X509_ALGOR* algorithm = nullptr;
  X509_CRL_get0_signature(crl, nullptr, &algorithm);
  if (OBJ_find_sigid_algs(OBJ_obj2nid(algorithm->algorithm), nullptr, nullptr) == 1) return true;
  SetInfo("It is " + ObjectText(algorithm->algorithm) + ".");
  return false;
}

// OpenSSL's security levels do not look at the signatures of lists.
bool IsStronglySigned(const X509_CRL* crl) {
  const X509_ALGOR* algorithm = nullptr;
  X509_CRL_get0_signature(crl, nullptr, &algorithm);
  const int nid = OBJ_obj2nid(algorithm->algorithm);
  if (nid == NID_ED25519 || nid == NID_ED448) return true;
  int digest = NID_undef;
  if (nid != NID_rsassaPss) return OBJ_find_sigid_algs(nid, &digest, nullptr) == 1 && IsStrongDigest(digest);

  if (algorithm->parameter == nullptr || algorithm->parameter->type != V_ASN1_SEQUENCE) return false;
  const ASN1_STRING* parameter = algorithm->parameter->value.sequence;
  const unsigned char* at = ASN1_STRING_get0_data(parameter);
  const std::unique_ptr<RSA_PSS_PARAMS, Releaser<RSA_PSS_PARAMS_free>> pss(
      d2i_RSA_PSS_PARAMS(nullptr, &at, ASN1_STRING_length(parameter)));
  // A missing hash algorithm means SHA-1 (RFC 4055, 3.1).
  return pss && pss->hashAlgorithm != nullptr && IsStrongDigest(OBJ_obj2nid(pss->hashAlgorithm->algorithm));
}

// The lists that say they are the issuer's; the others need not be good.
std::vector<X509_CRL*> ListsOf(const X509* issuer, const DkvCrlArray& array) {
  std::vector<X509_CRL*> lists;
  for (const CrlPtr& crl : array.crls) {
    if (X509_NAME_cmp(X509_CRL_get_issuer(crl.get()), X509_get_subject_name(issuer)) == 0) {
      lists.push_back(crl.get());
    }
  }
  return lists;
}

struct CrlViewReleaser {
  void operator()(STACK_OF(X509_CRL) * stack) const { sk_X509_CRL_free(stack); }
};

// What one complete list says; DKV_ERR_CRL_MISSING when it is about other certificates of the issuer.
Finding Ask(X509_CRL* list, X509* certificate, X509* issuer, std::int64_t time) {
  const std::unique_ptr<STACK_OF(X509_CRL), CrlViewReleaser> view(sk_X509_CRL_new_null());
  const StorePtr store(X509_STORE_new());
  const StoreCtxPtr context(X509_STORE_CTX_new());
  if (!view || !store || !context) throw std::bad_alloc();
  Require(sk_X509_CRL_push(view.get(), list) > 0, "lists");
  Require(X509_STORE_add_cert(store.get(), issuer) == 1, "issuer");
  Require(X509_STORE_CTX_init(context.get(), store.get(), certificate, nullptr) == 1, "look-up");

  X509_VERIFY_PARAM* param = X509_STORE_CTX_get0_param(context.get());
  X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_PARTIAL_CHAIN);
  if (time != DKV_NO_TIME) X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(time));
  X509_STORE_CTX_set0_crls(context.get(), view.get());
  Finding finding;
  Require(X509_STORE_CTX_set_app_data(context.get(), &finding) == 1, "finding");
  X509_STORE_CTX_set_verify_cb(context.get(), OnComplaint);
  if (X509_verify_cert(context.get()) != 1 && finding.rc == DKV_OK) finding.rc = DKV_ERR_CRL_INVALID;
  return finding;
}

IntegerPtr NumberOf(const X509_CRL* list, int nid) {
  return IntegerPtr(static_cast<ASN1_INTEGER*>(X509_CRL_get_ext_d2i(list, nid, nullptr, nullptr)));
}

bool IsDelta(const X509_CRL* list) {
  return X509_CRL_get_ext_by_NID(list, NID_delta_crl, -1) >= 0;
}

// A list without a number is older than every one that has one.
int CompareNumbers(const ASN1_INTEGER* one, const ASN1_INTEGER* other) {
  if (one == nullptr || other == nullptr) return (one != nullptr) - (other != nullptr);
  return ASN1_INTEGER_cmp(one, other);
}

bool IsNewer(const X509_CRL* one, const X509_CRL* other) {
  const int numbers =
      CompareNumbers(NumberOf(one, NID_crl_number).get(), NumberOf(other, NID_crl_number).get());
  if (numbers != 0) return numbers > 0;
  return ASN1_TIME_compare(X509_CRL_get0_lastUpdate(one), X509_CRL_get0_lastUpdate(other)) > 0;
}

bool IsCurrent(const X509_CRL* list, std::int64_t time) {
  std::time_t moment = time == DKV_NO_TIME ? std::time(nullptr) : static_cast<std::time_t>(time);
  return X509_CRL_get0_nextUpdate(list) != nullptr &&
         X509_cmp_time(X509_CRL_get0_lastUpdate(list), &moment) < 0 &&
         X509_cmp_time(X509_CRL_get0_nextUpdate(list), &moment) > 0;
}

Bytes ExtensionValue(const X509_CRL* list, int nid) {
  const int at = X509_CRL_get_ext_by_NID(list, nid, -1);
  if (at < 0) return {};
  const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(X509_CRL_get_ext(list, at));
  return {ASN1_STRING_get0_data(value), static_cast<std::size_t>(ASN1_STRING_length(value))};
}

// A delta list is read here and not by OpenSSL, which would take it for a complete one. So nothing may be in
// it that would have to be understood: its extensions are the number, the base and the scope.
bool IsPlainDelta(X509_CRL* delta) {
  for (int i = 0; i < X509_CRL_get_ext_count(delta); ++i) {
    X509_EXTENSION* extension = X509_CRL_get_ext(delta, i);
    const int nid = OBJ_obj2nid(X509_EXTENSION_get_object(extension));
    const bool known = nid == NID_delta_crl || nid == NID_issuing_distribution_point;
    if (X509_EXTENSION_get_critical(extension) == 1 && !known) return false;
  }
  const STACK_OF(X509_REVOKED)* entries = X509_CRL_get_REVOKED(delta);
  for (int i = 0; i < sk_X509_REVOKED_num(entries); ++i) {
    const X509_REVOKED* entry = sk_X509_REVOKED_value(entries, i);
    for (int j = 0; j < X509_REVOKED_get_ext_count(entry); ++j) {
      if (X509_EXTENSION_get_critical(X509_REVOKED_get_ext(entry, j)) == 1) return false;
    }
  }
  return true;
}

// True iff the list is a complete one of the same scope, from the delta's base on.
bool IsBaseOf(const X509_CRL* list, const X509_CRL* delta) {
  const IntegerPtr base = NumberOf(delta, NID_delta_crl);
  const IntegerPtr number = NumberOf(list, NID_crl_number);
  const Bytes scope = ExtensionValue(list, NID_issuing_distribution_point);
  const Bytes other = ExtensionValue(delta, NID_issuing_distribution_point);
  return base && number && ASN1_INTEGER_cmp(number.get(), base.get()) >= 0 &&
         std::equal(scope.begin(), scope.end(), other.begin(), other.end());
}

// What a delta list adds to the newest of the complete ones. removeFromCRL is not taken: what a current list
// revokes is revoked.
Finding AskDelta(X509_CRL* delta, const X509_CRL* newest, X509* certificate, std::int64_t time) {
  // All of it is in the complete list already.
  if (CompareNumbers(NumberOf(delta, NID_crl_number).get(), NumberOf(newest, NID_crl_number).get()) <= 0) {
    return {};
  }
  if (!IsPlainDelta(delta)) return {DKV_ERR_CRL_INVALID, kNoReason};
  if (!IsCurrent(delta, time)) return {DKV_ERR_CRL_OUTDATED, kNoReason};
  X509_REVOKED* entry = nullptr;
  if (X509_CRL_get0_by_cert(delta, &entry, certificate) == 1) return {DKV_ERR_REVOKED, ReasonOf(entry)};
  if (IsBaseOf(newest, delta)) return {};
  SetInfo("A delta list is given without the complete list that it builds upon.");
  return {DKV_ERR_CRL_INVALID, kNoReason};
}

// The worse of two findings: revoked before everything, then whatever was wrong first.
void Worsen(Finding& finding, const Finding& other) {
  if (finding.rc == DKV_ERR_REVOKED || other.rc == DKV_OK) return;
  if (finding.rc == DKV_OK || other.rc == DKV_ERR_REVOKED) finding = other;
}

Finding LookUp(X509* certificate, X509* issuer, const DkvCrlArray& array, std::int64_t time) {
  const std::vector<X509_CRL*> lists = ListsOf(issuer, array);
  Finding verdict{DKV_ERR_CRL_MISSING, kNoReason};
  const X509_CRL* newest = nullptr;
  bool revoked = false;
  std::vector<X509_CRL*> deltas;
  for (X509_CRL* list : lists) {
    if (!IsKnownSignature(list)) return {DKV_ERR_ALG_NOT_SUPPORTED, kNoReason};
    if (!IsStronglySigned(list)) return {DKV_ERR_CRL_INVALID, kNoReason};
    // An authority of the same name with another key has lists of its own.
    if (X509_CRL_verify(list, X509_get0_pubkey(issuer)) != 1) {
      if (newest == nullptr && !revoked) verdict.rc = DKV_ERR_CRL_INVALID;
      continue;
    }
    if (IsDelta(list)) {
      deltas.push_back(list);
      continue;
    }
    const Finding finding = Ask(list, certificate, issuer, time);
    if (finding.rc == DKV_ERR_CRL_MISSING) continue;
    if (newest == nullptr || IsNewer(list, newest)) {
      newest = list;
      if (!revoked) verdict = finding;
    }
    if (finding.rc == DKV_ERR_REVOKED) verdict = finding;
    revoked = verdict.rc == DKV_ERR_REVOKED;
  }
  ERR_clear_error();
  if (newest == nullptr) {
    if (!deltas.empty()) SetInfo("A delta list is given without the complete list that it builds upon.");
    return verdict;
  }
  for (X509_CRL* delta : deltas) Worsen(verdict, AskDelta(delta, newest, certificate, time));
  return verdict;
}

}  // namespace

extern "C" {

DKV_API int DkvDecodeCrlArray(const DkvOctetstring* file, DkvCrlArray** crls) {
  if (crls == nullptr) return DKV_ERR_ARGUMENT;
  *crls = nullptr;
  return Guarded(__func__, [&] {
    const Bytes bytes = Input(file);
    if (bytes.size() > static_cast<std::size_t>(INT32_MAX)) throw Failure(DKV_ERR_ASN1, "size");
    auto made = std::make_unique<DkvCrlArray>();
    constexpr std::string_view kMark = "-----BEGIN ";
    if (std::search(bytes.begin(), bytes.end(), kMark.begin(), kMark.end()) != bytes.end()) {
      ReadPem(bytes, made->crls);
    } else {
      ReadDer(bytes, made->crls);
    }
    if (made->crls.empty()) throw Failure(DKV_ERR_ASN1, "no list");
    *crls = made.release();
    return DKV_OK;
  });
}

DKV_API int DkvFreeCrlArray(DkvCrlArray* crls) {
  std::unique_ptr<DkvCrlArray>{crls}.reset();
  return DKV_OK;
}

DKV_API int DkvCheckCertWithCrlArray(const DkvCertificate* certificate, const DkvCertificate* issuer,
                                     const DkvCrlArray* crls, int64_t verificationTime, int* reason) {
  if (certificate == nullptr || crls == nullptr || reason == nullptr) return DKV_ERR_ARGUMENT;
  *reason = kNoReason;
  return Guarded(__func__, [&]() -> int {
    if (issuer == nullptr) return DKV_ERR_CRL_MISSING;
    X509* signedOne = certificate->certificate.get();
    if (X509_check_issued(issuer->certificate.get(), signedOne) != X509_V_OK) return DKV_ERR_CRL_MISSING;
    const Finding finding = LookUp(signedOne, issuer->certificate.get(), *crls, verificationTime);
    *reason = finding.reason;
    return finding.rc;
  });
}

}  // extern "C"
}  // namespace tolven::crypto

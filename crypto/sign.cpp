#include <openssl/err.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "api.h"
#include "certificate.h"
#include "chain.h"
#include "pse.h"
#include "signed_data.h"
#include "signing_certificate.h"

// Making signatures (RFC 5652), and the digests by name.
namespace tolven::crypto {
namespace {

MdPtr DigestByName(const char* name) {
  constexpr std::array<std::string_view, 3> kAllowed = {"SHA256", "SHA384", "SHA512"};
  for (const std::string_view allowed : kAllowed) {
    if (allowed != name) continue;
    MdPtr md(EVP_MD_fetch(nullptr, name, nullptr));
    if (md) return md;
  }
  throw Failure(DKV_ERR_ALGORITHM, "hash algorithm");
}

// What nobody would accept is not made.
void CheckOwnCertificate(const Pse& pse) {
  int rc = CheckChain(Trust(pse), pse.own.get(), pse.further, DKV_NO_TIME);
  if (rc == DKV_OK) rc = CheckSignerUsage(pse.own.get());
  if (rc != DKV_OK) throw Failure(rc, "own certificate");
}

bool Contains(const std::vector<X509*>& certificates, const X509* certificate) {
  return std::any_of(certificates.begin(), certificates.end(),
                     [certificate](const X509* other) { return X509_cmp(other, certificate) == 0; });
}

// The signer's certificate, and every other one of the profile that may lie on some way upwards from it:
// which way a reader can go depends on what that reader trusts. By the names alone: a namesake too many does
// no harm, whereas a check that fails for want of memory would leave one out.
std::vector<X509*> CertificatesOnWays(const Pse& pse) {
  std::vector<X509*> found = {pse.own.get()};
  for (std::size_t i = 0; i < found.size(); ++i) {
    for (const CertPtr& candidate : pse.further) {
      if (!Contains(found, candidate.get()) &&
          X509_NAME_cmp(X509_get_subject_name(candidate.get()), X509_get_issuer_name(found[i])) == 0) {
        found.push_back(candidate.get());
      }
    }
  }
  return found;
}

Certs InstalledTrust() {
  try {
    return LoadPse("QELverify", nullptr, PseUse::kTrust).further;
  } catch (const Failure&) {
    return {};
  }
}

bool IsRoot(X509* certificate) {
  return X509_self_signed(certificate, 0) == 1;
}

// True iff somebody who has the roots alone can find a way to one over what is embedded, as far as it can be
// told from here. A way that ends below an authority is taken for one that ends below its root, unless the
// profile has a root that it does not lead to.
bool ReachesARoot(const std::vector<X509*>& embedded, const Pse& pse) {
  if (std::any_of(embedded.begin(), embedded.end(), IsRoot)) return true;
  for (const CertPtr& root : InstalledTrust()) {
    const bool reached =
        Contains(embedded, root.get()) ||
        std::any_of(embedded.begin(), embedded.end(), [&](X509* at) { return HasIssued(root.get(), at); });
    if (reached) return true;
  }
  return embedded.size() > 1 && std::none_of(pse.further.begin(), pse.further.end(),
                                             [](const CertPtr& further) { return IsRoot(further.get()); });
}

void WarnOfGap(const std::vector<X509*>& embedded, const Pse& pse) {
  if (ReachesARoot(embedded, pse)) return;
  SetInfo("the signature does not carry the certificate of >" + IssuerText(embedded.back()) +
          "<, without which others may not be able to verify it: add it to the PSE (tolven-pse import)");
}

// OpenSSL has no way of its own to sign a message with these.
void CheckKeyType(EVP_PKEY* key) {
  constexpr std::array<const char*, 4> kKnown = {"RSA", "RSA-PSS", "EC", "DSA"};
  if (std::any_of(kKnown.begin(), kKnown.end(),
                  [key](const char* type) { return EVP_PKEY_is_a(key, type); })) {
    return;
  }
  const char* name = EVP_PKEY_get0_type_name(key);
  throw Unsupported(name == nullptr ? "the type of the key" : std::string("a key for ") + name);
}

// One lost allocation inside the library below, or a token that does not do as it is told, and the signature
// is one that nobody can verify: it is read back as a stranger would.
void ProveSignature(Bytes der, Bytes content, const std::vector<X509*>& embedded) {
  const SignedData data(der, SignedKind::kDetached);
  const CertPtr signer = data.FindSigner(Trust());
  bool good = signer != nullptr && X509_cmp(signer.get(), embedded.front()) == 0 &&
              data.CheckSignature(content, signer.get(), Trust()) == DKV_OK &&
              data.signingTime() != DKV_NO_TIME &&
              CheckSigningCertificate(data.signer(), signer.get(), {&data.certificates()}, true) == DKV_OK;
  for (X509* wanted : embedded) {
    good = good && std::any_of(data.certificates().begin(), data.certificates().end(),
                               [wanted](const CertPtr& found) { return X509_cmp(found.get(), wanted) == 0; });
  }
  if (!good) throw Failure(DKV_ERR_GENERAL, "proof", "The signature that was made does not verify.");
}

std::vector<std::uint8_t> Sign(Bytes content, const EVP_MD* md, const Pse& pse,
                               const std::vector<X509*>& embedded) {
  if (content.size() > static_cast<std::size_t>(INT32_MAX)) throw Failure(DKV_ERR_ARGUMENT, "content size");
  // Binary: no line end is touched. CAdES is what OpenSSL calls the signing certificate attribute; signing
  // time, content type and message digest come by themselves. The capabilities of a mailer say nothing here.
  constexpr unsigned kFlags = CMS_BINARY | CMS_DETACHED | CMS_PARTIAL | CMS_NOSMIMECAP | CMS_CADES;
  const CmsPtr cms(CMS_sign_ex(nullptr, nullptr, nullptr, nullptr, kFlags, pse.context.get(), nullptr));
  Require(cms != nullptr, "signed data");
  // Keys for RSASSA-PSS alone need its parameters in the message (RFC 4056); OpenSSL writes those of plain
  // RSA unless it is asked for the parameters of the key.
  const bool pss = EVP_PKEY_is_a(pse.key.get(), "RSA-PSS") == 1;
  CMS_SignerInfo* signer =
      CMS_add1_signer(cms.get(), pse.own.get(), pse.key.get(), md, kFlags | (pss ? CMS_KEY_PARAM : 0U));
  if (signer == nullptr && pss) {
    throw Failure(DKV_ERR_ALGORITHM, "signer", "The key may not be used with this hash algorithm.");
  }
  Require(signer != nullptr, "signer");
  if (pss) {
    Require(
        EVP_PKEY_CTX_set_rsa_pss_saltlen(CMS_SignerInfo_get0_pkey_ctx(signer), RSA_PSS_SALTLEN_DIGEST) > 0,
        "salt");
  }
  for (X509* certificate : embedded) {
    if (certificate == embedded.front()) continue;  // it came with the signer
    Require(CMS_add1_cert(cms.get(), certificate) == 1, "chain");
  }
  const BioPtr data(BIO_new_mem_buf(content.empty() ? static_cast<const void*>("") : content.data(),
                                    static_cast<int>(content.size())));
  Require(data != nullptr, "content");
  Require(CMS_final(cms.get(), data.get(), nullptr, kFlags & ~static_cast<unsigned>(CMS_PARTIAL)) == 1,
          "sign");
  return ToDer(cms.get(), i2d_CMS_ContentInfo);
}

}  // namespace

extern "C" {

DKV_API int DkvDigest(const char* algorithm, const DkvOctetstring* data, DkvOctetstring** digest) {
  if (algorithm == nullptr || digest == nullptr) return DKV_ERR_ARGUMENT;
  *digest = nullptr;
  return Guarded(__func__, [&] {
    const MdPtr md = DigestByName(algorithm);
    const Bytes bytes = Input(data);
    std::array<std::uint8_t, EVP_MAX_MD_SIZE> value{};
    unsigned length = 0;
    Require(EVP_Digest(bytes.data(), bytes.size(), value.data(), &length, md.get(), nullptr) == 1, "digest");
    *digest = MakeOctets(Bytes(value).first(length)).release();
    return DKV_OK;
  });
}

DKV_API int DkvSign(const char* format, const char* hashAlgorithm, const DkvOctetstring* content,
                    const SigRcpDkvInfo* signer, DkvOctetstring** signature) {
  if (format == nullptr || hashAlgorithm == nullptr || signature == nullptr) return DKV_ERR_ARGUMENT;
  *signature = nullptr;
  return Guarded(__func__, [&] {
    if (std::strcmp(format, "PKCS7") != 0) throw Failure(DKV_ERR_FORMAT, format);
    const MdPtr md = DigestByName(hashAlgorithm);
    const Bytes bytes = Input(content);
    const SigRcpDkvInfo& info = InputSigner(signer);
    const Pse pse = LoadPse(info.profile, info.password, PseUse::kSign);
    CheckOwnCertificate(pse);
    CheckKeyType(pse.key.get());
    const std::vector<X509*> embedded = CertificatesOnWays(pse);
    const std::vector<std::uint8_t> made = Sign(bytes, md.get(), pse, embedded);
    ProveSignature(made, bytes, embedded);
    WarnOfGap(embedded, pse);
    *signature = MakeOctets(made).release();
    return DKV_OK;
  });
}

}  // extern "C"
}  // namespace tolven::crypto

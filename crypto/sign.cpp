#include <array>
#include <cstring>
#include <string_view>

#include "api.h"
#include "chain.h"
#include "pse.h"

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

// The certificates above the signer's, as far as the profile has them; whoever trusts a root has it already.
std::vector<X509*> ChainAbove(const Pse& pse) {
  std::vector<X509*> chain;
  X509* at = pse.own.get();
  while (chain.size() < pse.further.size()) {
    X509* issuer = FindIssuer(at, {&pse.further});
    if (issuer == nullptr || issuer == at || X509_self_signed(issuer, 0) == 1) break;
    chain.push_back(issuer);
    at = issuer;
  }
  return chain;
}

std::vector<std::uint8_t> Sign(Bytes content, const EVP_MD* md, const Pse& pse) {
  // Binary: no line end is touched. CAdES is what OpenSSL calls the signing certificate attribute; signing
  // time, content type and message digest come by themselves. The capabilities of a mailer say nothing here.
  constexpr unsigned kFlags = CMS_BINARY | CMS_DETACHED | CMS_PARTIAL | CMS_NOSMIMECAP | CMS_CADES;
  const CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags));
  Require(cms != nullptr, "signed data");
  Require(CMS_add1_signer(cms.get(), pse.own.get(), pse.key.get(), md, kFlags) != nullptr, "signer");
  for (X509* certificate : ChainAbove(pse)) {
    Require(CMS_add1_cert(cms.get(), certificate) == 1, "chain");
  }
  if (content.size() > static_cast<std::size_t>(INT32_MAX)) throw Failure(DKV_ERR_ARGUMENT, "content size");
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
    *signature = MakeOctets(Sign(bytes, md.get(), pse)).release();
    return DKV_OK;
  });
}

}  // extern "C"
}  // namespace tolven::crypto

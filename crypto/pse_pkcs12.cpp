#include <optional>

#include "api.h"
#include "pse_file.h"

namespace tolven::crypto {
namespace {

Pkcs12Ptr Decode(const Secret& content, OSSL_LIB_CTX* context) {
  PKCS12* p12 = PKCS12_init_ex(NID_pkcs7_data, context, nullptr);
  if (p12 == nullptr) throw std::bad_alloc();
  const unsigned char* at = content.bytes.data();
  // Decoding into an object keeps its context; a failure releases the object.
  if (d2i_PKCS12(&p12, &at, static_cast<long>(content.bytes.size())) == nullptr) {
    throw Failure(DKV_ERR_PSE_FORMAT, "PKCS#12");
  }
  return Pkcs12Ptr(p12);
}

// No password and an empty one are two different things in PKCS#12; people do not know, so both are tried.
const char* FindMacPassword(PKCS12* p12, const char* password) {
  const bool none = password == nullptr || password[0] == '\0';
  if (PKCS12_mac_present(p12) != 1) return none ? nullptr : password;
  if (!none && PKCS12_verify_mac(p12, password, -1) == 1) return password;
  if (none && PKCS12_verify_mac(p12, nullptr, 0) == 1) return nullptr;
  if (none && PKCS12_verify_mac(p12, "", 0) == 1) return "";
  if (const std::string algorithm = UnsupportedAlgorithm(); !algorithm.empty()) throw Unsupported(algorithm);
  throw Failure(DKV_ERR_PASSWORD, "PKCS#12");
}

// Nothing when the content cannot be decrypted in this context.
std::optional<Pse> Parse(PKCS12* p12, const char* password) {
  EVP_PKEY* key = nullptr;
  X509* own = nullptr;
  STACK_OF(X509)* rest = nullptr;
  const int parsed = PKCS12_parse(p12, FindMacPassword(p12, password), &key, &own, &rest);
  Pse pse;
  pse.key.reset(key);
  CertPtr first(own);
  const CertStack owner(rest);
  if (parsed != 1) return std::nullopt;
  if (first) pse.further.push_back(std::move(first));
  for (int i = 0; i < sk_X509_num(rest); ++i) pse.further.push_back(Share(sk_X509_value(rest, i)));
  return pse;
}

// Key and certificates of another context, made anew in the usual one.
Pse Translate(const Pse& foreign) {
  Pse pse;
  if (foreign.key) {
    const std::unique_ptr<PKCS8_PRIV_KEY_INFO, Releaser<PKCS8_PRIV_KEY_INFO_free>> plain(
        EVP_PKEY2PKCS8(foreign.key.get()));
    pse.key.reset(plain ? EVP_PKCS82PKEY(plain.get()) : nullptr);
    if (!pse.key) throw Failure(DKV_ERR_PSE_FORMAT, "PKCS#12 key");
  }
  for (const CertPtr& certificate : foreign.further) {
    pse.further.emplace_back(FromDer<X509>(ToDer(certificate.get(), i2d_X509), d2i_X509));
  }
  return pse;
}

}  // namespace

Pse ReadPkcs12(const Secret& content, const char* password) {
  if (std::optional<Pse> pse = Parse(Decode(content, nullptr).get(), password)) return std::move(*pse);
  const std::string algorithm = UnsupportedAlgorithm();
  if (algorithm.empty()) throw Failure(DKV_ERR_PSE_FORMAT, "PKCS#12 content");
  // The old ciphers, for reading a file and for nothing else: in a context of their own, so that neither a
  // signature nor the program around us can come to use them. A certified kernel is not to be led around.
  const std::shared_ptr<OSSL_LIB_CTX> legacy = IsFipsActive() ? nullptr : ContextWith("legacy");
  if (legacy == nullptr) throw Unsupported(algorithm);
  const std::optional<Pse> foreign = Parse(Decode(content, legacy.get()).get(), password);
  if (!foreign) throw Unsupported(algorithm);
  return Translate(*foreign);
}

}  // namespace tolven::crypto

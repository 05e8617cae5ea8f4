#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

// Owners of the objects of OpenSSL, so that every early return releases them.
namespace tolven::crypto {

template <auto release>
struct Releaser {
  template <typename T>
  void operator()(T* object) const {
    release(object);
  }
};

using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using CertPtr = std::unique_ptr<X509, Releaser<X509_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Releaser<CMS_ContentInfo_free>>;
using CrlPtr = std::unique_ptr<X509_CRL, Releaser<X509_CRL_free>>;
using IntegerPtr = std::unique_ptr<ASN1_INTEGER, Releaser<ASN1_INTEGER_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using MdPtr = std::unique_ptr<EVP_MD, Releaser<EVP_MD_free>>;
using Pkcs12Ptr = std::unique_ptr<PKCS12, Releaser<PKCS12_free>>;
using StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, Releaser<X509_STORE_CTX_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Releaser<X509_STORE_free>>;
using TsReqPtr = std::unique_ptr<TS_REQ, Releaser<TS_REQ_free>>;
using TsRespPtr = std::unique_ptr<TS_RESP, Releaser<TS_RESP_free>>;
using TstInfoPtr = std::unique_ptr<TS_TST_INFO, Releaser<TS_TST_INFO_free>>;

// A stack that does not own its certificates.
struct CertViewReleaser {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};
using CertView = std::unique_ptr<STACK_OF(X509), CertViewReleaser>;

// A stack that does.
struct CertStackReleaser {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_pop_free(stack, X509_free); }
};
using CertStack = std::unique_ptr<STACK_OF(X509), CertStackReleaser>;

// A context of its own with the default provider and another one; null when OpenSSL has no such provider.
std::shared_ptr<OSSL_LIB_CTX> ContextWith(const char* provider);

using Certs = std::vector<CertPtr>;
using Bytes = std::span<const std::uint8_t>;

// Another owner of the same certificate (they are counted).
inline CertPtr Share(X509* certificate) {
  X509_up_ref(certificate);
  return CertPtr(certificate);
}

}  // namespace tolven::crypto

#include <algorithm>
#include <array>

#include "api.h"

// Names and descriptions of the return codes, once.
namespace tolven::crypto {
namespace {

struct RcText {
  int rc;
  const char* name;
  const char* description;
};

#define TOLVEN_RC(rc, description) \
  RcText {                         \
    rc, #rc, description           \
  }

constexpr std::array kTexts = {
    TOLVEN_RC(DKV_OK, "Success."),
    TOLVEN_RC(DKV_ERR_GENERAL, "The cryptographic library failed."),
    TOLVEN_RC(DKV_ERR_ARGUMENT, "An argument is missing or has the wrong size."),
    TOLVEN_RC(DKV_ERR_MEMORY, "Out of memory."),
    TOLVEN_RC(DKV_ERR_FORMAT, "The signature format is unknown."),
    TOLVEN_RC(DKV_ERR_SIGNER, "The signer's result tells what is wrong."),
    TOLVEN_RC(DKV_ERR_ALGORITHM, "The hash algorithm is unknown or not allowed."),
    TOLVEN_RC(DKV_ERR_NOT_INITIALISED, "The library was not initialised."),
    TOLVEN_RC(DKV_ERR_PROPERTY, "The library has no such property, or it cannot be changed now."),
    TOLVEN_RC(DKV_ERR_LIBRARY, "The library could not be loaded."),
    TOLVEN_RC(DKV_ERR_NO_PSE, "There is no PSE file of that name."),
    TOLVEN_RC(DKV_ERR_PASSWORD, "The password of the PSE is missing or wrong."),
    TOLVEN_RC(DKV_ERR_PSE_FORMAT, "The PSE file is neither PKCS#12 nor PEM, or is damaged."),
    TOLVEN_RC(DKV_ERR_PSE_NO_KEY, "The PSE has no private key."),
    TOLVEN_RC(DKV_ERR_PSE_NO_CERT, "The PSE has no certificate, or none for its key."),
    TOLVEN_RC(DKV_ERR_NOT_SUPPORTED, "The library does not support this."),
    TOLVEN_RC(DKV_ERR_ALG_NOT_SUPPORTED, "An algorithm is not supported."),
    TOLVEN_RC(DKV_ERR_PSE_READ, "The PSE file cannot be read."),
    TOLVEN_RC(DKV_ERR_MODULE, "The key of the PKCS#11 module cannot be used."),
    TOLVEN_RC(DKV_ERR_WRONG_SIGNER, "The signer is not that key: no trusted certificate vouches for it."),
    TOLVEN_RC(DKV_ERR_UNTRUSTED, "The chain to the trusted certificate is not acceptable."),
    TOLVEN_RC(DKV_ERR_EXPIRED, "A certificate has expired."),
    TOLVEN_RC(DKV_ERR_NOT_YET_VALID, "A certificate is not yet valid."),
    TOLVEN_RC(DKV_ERR_KEY_USAGE, "The key usage of the certificate lacks digitalSignature."),
    TOLVEN_RC(DKV_ERR_EXT_KEY_USAGE,
              "The extended key usage of the certificate, or of one above it, lacks codeSigning."),
    TOLVEN_RC(DKV_ERR_WEAK, "A key or an algorithm is too weak."),
    TOLVEN_RC(DKV_ERR_DIGEST, "The content is not what was signed."),
    TOLVEN_RC(DKV_ERR_SIGNATURE_VALUE, "The signature was not made with the key of the certificate."),
    TOLVEN_RC(DKV_ERR_ATTRIBUTES, "The signed attributes are missing or wrong."),
    TOLVEN_RC(DKV_ERR_SIGNING_CERT, "The signature names another signing certificate."),
    TOLVEN_RC(DKV_ERR_ASN1, "The data is damaged or of another kind."),
    TOLVEN_RC(DKV_ERR_TRAILING_DATA, "There is data behind the object."),
    TOLVEN_RC(DKV_ERR_EMBEDDED, "The signature carries content of its own."),
    TOLVEN_RC(DKV_ERR_SIGNER_COUNT, "There is not exactly one signer."),
    TOLVEN_RC(DKV_ERR_SIGNER_CERT, "The signer's certificate was not found."),
    TOLVEN_RC(DKV_ERR_REVOKED, "The certificate is revoked."),
    TOLVEN_RC(DKV_ERR_CRL_OUTDATED, "The certificate revocation list is not current."),
    TOLVEN_RC(DKV_ERR_CRL_MISSING, "There is no certificate revocation list of the issuer."),
    TOLVEN_RC(DKV_ERR_CRL_INVALID, "The certificate revocation list is not its issuer's, or cannot be used."),
    TOLVEN_RC(DKV_ERR_TOKEN, "The time stamp is damaged or belongs to another signature."),
    TOLVEN_RC(DKV_ERR_TOKEN_MISSING, "The time stamp is missing."),
    TOLVEN_RC(DKV_ERR_TOKEN_TRUST, "No trusted certificate vouches for the time stamp authority."),
    TOLVEN_RC(DKV_ERR_TSA_CERT, "The certificate of the time stamp authority is not for time stamps alone."),
    TOLVEN_RC(DKV_ERR_TSA_STATUS, "The time stamp authority refused the request."),
    TOLVEN_RC(DKV_ERR_TSA_NONCE, "The time stamp reply answers another request."),
    TOLVEN_RC(DKV_ERR_TSA_IMPRINT, "The time stamp reply is about other data."),
    TOLVEN_RC(DKV_ERR_TLS, "The TLS connection failed."),
    TOLVEN_RC(DKV_ERR_TLS_CERT, "The server's certificate is not trusted."),
    TOLVEN_RC(DKV_ERR_TLS_HOST, "The server's certificate is for another host."),
    TOLVEN_RC(DKV_ERR_TIMEOUT, "The server did not answer in time."),
};

#undef TOLVEN_RC

const RcText* Find(int rc) {
  const auto* at =
      std::find_if(kTexts.begin(), kTexts.end(), [rc](const RcText& text) { return text.rc == rc; });
  return at == kTexts.end() ? nullptr : at;
}

}  // namespace

extern "C" {

DKV_API const char* DkvRcName(int rc) {
  const RcText* text = Find(rc);
  return text == nullptr ? nullptr : text->name;
}

DKV_API const char* DkvRcDesc(int rc) {
  const RcText* text = Find(rc);
  return text == nullptr ? nullptr : text->description;
}

}  // extern "C"
}  // namespace tolven::crypto

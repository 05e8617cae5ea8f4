#pragma once

#include <cstdint>
#include <string>

#include "api.h"
#include "openssl.h"

struct DkvCertificate {
  tolven::crypto::CertPtr certificate;
};

namespace tolven::crypto {

// RFC 4514 text in UTF-8, control characters escaped, so that a name cannot fake a line of output.
std::string NameText(const X509_NAME* name);
std::string SubjectText(const X509* certificate);
std::string IssuerText(const X509* certificate);
// Serial number in lowercase hexadecimal.
std::string SerialText(const ASN1_INTEGER* serial);
// Serial number, a blank, issuer: what RFC 5652 identifies a signer by.
std::string IdText(const X509* certificate);
// Its name ("ED25519"), or its number when it has none.
std::string ObjectText(const ASN1_OBJECT* object);
// Seconds since 1970, or DKV_NO_TIME for a time that is none.
std::int64_t ToSeconds(const ASN1_TIME* time);

}  // namespace tolven::crypto

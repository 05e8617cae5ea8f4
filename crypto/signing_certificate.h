#pragma once

#include <vector>

#include "openssl.h"

namespace tolven::crypto {

// The value of a signed attribute that stands there once, with one value of the type (V_ASN1_...); null
// otherwise.
const ASN1_STRING* SignedAttribute(const CMS_SignerInfo* signer, int nid, int type);

// The attributes "signing certificate", version 1 and 2 (RFC 5035), which bind a signature to one certificate
// and not just to a key and a name. What is there must name this certificate first and further ones out of
// `known` only. With required set one of the two must be there. DKV_OK, DKV_ERR_ATTRIBUTES,
// DKV_ERR_SIGNING_CERT.
int CheckSigningCertificate(const CMS_SignerInfo* signer, X509* certificate,
                            const std::vector<const Certs*>& known, bool required);

}  // namespace tolven::crypto

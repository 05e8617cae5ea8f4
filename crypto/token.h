#pragma once

#include <cstdint>
#include <vector>

#include "chain.h"
#include "openssl.h"

namespace tolven::crypto {

// What a time stamp token (RFC 3161) over a signature value is worth.
struct TokenFinding {
  int rc;             // DKV_OK or one of the codes of tokens, DKV_ERR_WEAK included
  std::int64_t time;  // seconds since 1970; DKV_NO_TIME unless rc is DKV_OK
  CertPtr tsa;        // null when the token has none
  CertPtr issuer;     // of the TSA's certificate; null when not known
};

// Who may stamp: the certificates of the profile "QELtimestamp", else those of `trust` that are limited to
// time stamps. Whoever may issue signers must not by that alone be able to say when they signed.
Trust TimeStampTrust(const Trust& trust);

// The authority's chain is judged at the token's own time: a token outlives the certificate it was made with.
// A time in the future is not believed.
TokenFinding CheckToken(Bytes token, Bytes signatureValue, const Trust& trust);

// The token of the signer's unsigned attributes, in DER. present is false when there is none. rc is
// DKV_ERR_TOKEN for more than one, or for something that cannot be one; der is empty then. The bytes are the
// signer's.
struct FoundToken {
  bool present;
  int rc;
  Bytes der;
};
FoundToken FindToken(CMS_SignerInfo* signer);

// True iff the imprint is the digest of the data, by a strong algorithm.
bool ImprintMatches(TS_MSG_IMPRINT* imprint, Bytes data);

}  // namespace tolven::crypto

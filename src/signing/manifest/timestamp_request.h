#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "report/code_names.h"
#include "signing/crypto/dkv_table.h"
#include "signing/manifest/connection.h"

namespace tolven {

// One request to a time-stamp authority (RFC 3161 over HTTP). The upper half is given, the lower half comes
// back.
struct SmfTimestampRequest {
  const DkvTable* library = nullptr;
  std::vector<std::uint8_t> signature;  // made by DkvSign
  std::string pse;                      // its certificates are trusted for the authority
  std::string password;
  std::string tsaUrl;
  std::string proxyUrl;  // empty: none
  HttpLimits limits;

  std::vector<std::uint8_t> stamped;  // the signature with the token in it; empty unless SMF_OK
  int errorCode = SMF_OK;             // what the call returned
  int dkvErrorCode = 0;               // the library's, 0 when it was not the library that failed
  std::string errorText;              // "Timestamp request failed" and the reason, a line each
};

// Asks, checks the answer and adds it to the signature. SMF_OK, SMF_ETSA, or SMF_ENOMEM. For an https URL the
// environment variable QELMANIFEST_SSL_PSE names the PSE with the trusted servers, default "./QELSSL.pse".
[[nodiscard]] int SmfUtilTimestampRequest(SmfTimestampRequest& request);

}  // namespace tolven

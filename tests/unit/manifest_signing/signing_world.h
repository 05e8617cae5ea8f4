#pragma once

#include <string>
#include <string_view>

#include "manifest/document.h"
#include "signing/crypto/dkv_table.h"
#include "support/scratch.h"

namespace tolven::test {

// Keys, certificates and revocation lists made by the openssl command, once a program run. SECUDIR points to
// its directory "sec", where QELverify trusts the root of the signers.
const Scratch& Pki();

// Sets or (null) unsets an environment variable until the end of the scope.
class Environment {
 public:
  Environment(const char* name, const char* value);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  std::string m_name;
  std::string m_before;
  bool m_wasSet;
};

// A context with the cryptographic library of this build.
ManifestContextPtr Initialised(const char* format, const char* fileHash = "SHA256",
                               const char* signatureHash = "SHA256");
// Its table.
const DkvTable* Library();

// Body (signed bytes) and signature (DER) of a document, taken apart without the manifest library's help.
std::string BodyOf(std::string_view document);
std::string SignatureOf(const Scratch& scratch, std::string_view document);

// The time stamp authority of tests/support/tsa_server.py, started on first use.
struct TsaPorts {
  std::string plain;
  std::string tls;
};
const TsaPorts& Tsa();

}  // namespace tolven::test

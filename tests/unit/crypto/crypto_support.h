#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "signing/crypto/dkv_table.h"
#include "support/scratch.h"

namespace tolven::test {

// The certificate world of make_pki.sh, made once for the whole program, with SECUDIR pointing into it.
const Scratch& Pki();
// The library under test, loaded once.
const DkvTable* Lib();

// A caller's octet string over text that must outlive it.
DkvOctetstring View(const std::string& bytes);
// Takes an octet string that the library handed out; empty for null.
std::string Take(DkvOctetstring* octets);
// A profile of the world by file name ("signer.pse"); plain names go through as they are.
std::string Profile(const std::string& name);

struct SignerDeleter {
  void operator()(SigRcpDkvInfo* info) const { DkvLibDELSigRcpDkvInfo(Lib(), info); }
};
using SignerEntry = std::unique_ptr<SigRcpDkvInfo, SignerDeleter>;
SignerEntry Entry(const std::string& profile, const char* password = nullptr);

// What DkvVerify said, its list copied and released.
struct Verdict {
  int rc = -1;
  int result = -1;
  std::string subject;
  int tokenPresent = -1;
  int tokenResult = -1;
  std::int64_t tokenTime = -1;
  std::string tsaId, tsaCertificate, tsaIssuerCertificate;

  // The reason: the signer's result when there is a signer, else the code.
  int Reason() const { return rc == DKV_ERR_SIGNER ? result : rc; }
};
Verdict Verify(const std::string& content, const std::string& signature, const std::string& profile,
               const char* format = "PKCS7", const char* password = nullptr);

// DkvSign; the code goes to rc when given, else it must be DKV_OK.
std::string Sign(const std::string& content, const std::string& profile, const char* password = nullptr,
                 const char* hash = "SHA256", int* rc = nullptr);

// A signature by the openssl command with a key and certificate of the world. options are those of "openssl
// cms".
std::string OpensslSign(const std::string& content, const std::string& signer,
                        const std::string& options = "");

inline constexpr char kContent[] = "QEL-MANIFEST\nVersion: 1.0\r\n\nsome bytes\n";

// "DKV_ERR_EXPIRED" for messages of the tests.
std::string Name(int rc);

}  // namespace tolven::test

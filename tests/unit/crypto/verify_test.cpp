#include "crypto_support.h"

namespace tolven::test {
namespace {

struct Row {
  const char* what;
  const char* signer;
  const char* options;
  const char* profile;
  int reason;
};

// Signatures by the openssl command: what is right passes, and each thing that can be wrong has its code.
TEST(Verify, SignaturesOfOthers) {
  const Row rows[] = {
      {"plain", "signer", "", "trust.pse", DKV_OK},
      {"with signing certificate", "signer", "-cades", "trust.pse", DKV_OK},
      {"RSA", "rsa", "-md sha512", "trust.pse", DKV_OK},
      {"RSA-PSS", "rsa", "-keyopt rsa_padding_mode:pss", "trust.pse", DKV_OK},
      {"signer known by key id", "signer", "-keyid", "trust.pse", DKV_OK},
      {"its own certificate trusted", "lonely", "", "lonely.pse", DKV_OK},
      {"not a root, but trusted", "signer", "", "signer.p12", DKV_OK},
      {"no usage restrictions", "plain", "", "trust.pse", DKV_OK},
      {"another root", "stranger", "", "trust.pse", DKV_ERR_WRONG_SIGNER},
      {"another root carried along", "stranger", "-certfile foreign.crt", "trust.pse", DKV_ERR_WRONG_SIGNER},
      {"self-signed", "lonely", "", "trust.pse", DKV_ERR_WRONG_SIGNER},
      {"self-signed, namesake trusted", "lonely", "", "namesake.pse", DKV_ERR_WRONG_SIGNER},
      {"issued by a mere signer", "child", "-certfile chain.crt", "trust.pse", DKV_ERR_UNTRUSTED},
      {"issued by a mere signer, who is trusted", "child", "", "signer.p12", DKV_ERR_UNTRUSTED},
      {"expired", "expired", "", "trust.pse", DKV_ERR_EXPIRED},
      {"expired and trusted itself", "expired", "", "expired.pse", DKV_ERR_EXPIRED},
      {"not yet valid", "future", "", "trust.pse", DKV_ERR_NOT_YET_VALID},
      {"extended key usage for mail", "mailer", "", "trust.pse", DKV_ERR_EXT_KEY_USAGE},
      {"key usage for encryption", "sealer", "", "trust.pse", DKV_ERR_KEY_USAGE},
      {"time stamp authority as signer", "tsa", "", "trust.pse", DKV_ERR_EXT_KEY_USAGE},
      {"unknown critical extension", "critical_unknown", "", "trust.pse", DKV_ERR_UNTRUSTED},
      {"RSA with 1024 bits", "weak", "", "trust.pse", DKV_ERR_WEAK},
      {"certificate signed with SHA-1", "sha1", "", "trust.pse", DKV_ERR_WEAK},
      {"SHA-1 digest", "signer", "-md sha1", "trust.pse", DKV_ERR_WEAK},
      {"MD5 digest", "rsa", "-md md5", "trust.pse", DKV_ERR_WEAK},
      {"no attributes", "signer", "-noattr", "trust.pse", DKV_ERR_ATTRIBUTES},
      {"other content type", "signer", "-econtent_type 1.2.3.4", "trust.pse", DKV_ERR_ASN1},
      {"content embedded", "signer", "-nodetach", "trust.pse", DKV_ERR_EMBEDDED},
      {"two signers", "signer", "-signer rsa.crt -inkey rsa.key", "trust.pse", DKV_ERR_SIGNER_COUNT},
      {"no certificate", "stranger", "-nocerts", "trust.pse", DKV_ERR_SIGNER_CERT},
      {"key for RSA-PSS alone", "pss", "-keyopt rsa_padding_mode:pss", "trust.pse", DKV_OK},
      {"authority for TLS servers", "tls_issued", "-certfile tls_ca.crt", "trust.pse", DKV_ERR_EXT_KEY_USAGE},
      {"the same, trusted itself", "tls_issued", "", "tls_ca.pse", DKV_ERR_EXT_KEY_USAGE},
      {"authority for code", "code_issued", "-certfile code_ca.crt", "trust.pse", DKV_OK},
      {"expired authority trusted, and its renewal's root", "signer", "", "renewed_trust.pse", DKV_OK},
      {"expired authority trusted alone", "signer", "", "inter_old.pse", DKV_ERR_EXPIRED},
      {"expired certificate of the key trusted, too", "signer", "-keyid", "old_signer.pse", DKV_OK},
      {"key of another kind", "lonely", "", "ed25519_namesake.pse", DKV_ERR_ALG_NOT_SUPPORTED},
      {"indefinite length", "signer", "-stream -indef", "trust.pse", DKV_ERR_ASN1},
  };
  for (const Row& row : rows) {
    const std::string signature = OpensslSign(kContent, row.signer, row.options);
    const char* password = std::string(row.profile).ends_with(".p12") ? "secret" : nullptr;
    EXPECT_EQ(Name(Verify(kContent, signature, row.profile, "PKCS7", password).Reason()), Name(row.reason))
        << row.what;
  }
}

// The attribute must name the certificate: here another certificate of the same key and name takes its place.
TEST(Verify, SigningCertificateIsBound) {
  const Scratch& pki = Pki();
  pki.Run(
      "cp signer.key signer2.key && openssl req -new -config pki.cnf -subj /CN=signer -key signer2.key -out "
      "signer2.csr 2>&1 && openssl ca -config pki.cnf -batch -notext -extensions signer -in signer2.csr "
      "-out signer2.crt 2>&1");
  std::string signature = OpensslSign(kContent, "signer", "-cades");
  ASSERT_EQ(Verify(kContent, signature, "trust.pse").rc, DKV_OK);
  // Only the serial number tells the two apart, in the signer's identifier and in the certificates.
  pki.Run("cat signer2.key signer2.crt > signer2.pse");
  pki.Write("first", signature);
  const std::string second = OpensslSign(kContent, "signer2", "-cades -nocerts");
  pki.Run(
      "openssl x509 -in signer.crt -noout -serial > one && openssl x509 -in signer2.crt -noout -serial > "
      "two");
  const auto serial = [&](const char* file) {
    const std::string hex = pki.Read(file).substr(7, 4);
    return std::string{static_cast<char>(std::stoi(hex.substr(0, 2), nullptr, 16)),
                       static_cast<char>(std::stoi(hex.substr(2, 2), nullptr, 16))};
  };
  // INTEGER, two bytes: without certificates its first place is the signer identifier.
  std::string forged = second;
  const std::size_t at = forged.find(std::string("\x02\x02") + serial("two"));
  ASSERT_NE(at, std::string::npos);
  forged.replace(at + 2, 2, serial("one"));
  EXPECT_EQ(Name(Verify(kContent, forged, "signer.pse").Reason()), "DKV_ERR_SIGNING_CERT");
  EXPECT_EQ(Name(Verify(kContent, second, "signer2.pse").Reason()), "DKV_OK");
}

TEST(Verify, OneObjectAndNothingBehindIt) {
  const std::string good = Sign(kContent, "signer.pse");
  EXPECT_EQ(Name(Verify(kContent, good + '\0', "trust.pse").rc), "DKV_ERR_TRAILING_DATA");
  EXPECT_EQ(Name(Verify(kContent, good + good, "trust.pse").rc), "DKV_ERR_TRAILING_DATA");
  EXPECT_EQ(Name(Verify(kContent, "", "trust.pse").rc), "DKV_ERR_ASN1");
  EXPECT_EQ(Name(Verify(kContent, kContent, "trust.pse").rc), "DKV_ERR_ASN1");
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_NE(Verify(kContent, good.substr(0, length), "trust.pse").rc, DKV_OK) << length;
  }
}

// No single changed byte, wherever it is, makes a signature fit content it was not made for; and none of the
// damaged structures may do harm.
TEST(Verify, NoChangedByteHelps) {
  const std::string good = Sign(kContent, "signer.p12", "secret");
  int tried = 0;
  int refused = 0;
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ (1 << (at % 8)));
    EXPECT_NE(Verify("other content", bad, "trust.pse").rc, DKV_OK) << at;
    if (at % 4 != 0) continue;
    ++tried;
    if (Verify(kContent, bad, "trust.pse").rc != DKV_OK) ++refused;
  }
  // Few bytes of a signature mean nothing.
  EXPECT_GT(refused, tried * 9 / 10);
}

}  // namespace
}  // namespace tolven::test

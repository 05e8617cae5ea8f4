#include "crypto_support.h"

namespace tolven::test {
namespace {

class SignWith : public ::testing::TestWithParam<std::tuple<const char*, const char*>> {};

// The openssl command, which nobody here wrote, must agree with every signature we make.
TEST_P(SignWith, OpensslVerifies) {
  const auto& [profile, hash] = GetParam();
  Pki().Write("content", kContent);
  Pki().Write("ours", Sign(kContent, profile, nullptr, hash));
  Pki().Run(
      "openssl cms -verify -binary -inform DER -in ours -content content -CAfile root.crt -purpose any "
      "-cades -out verified 2>&1");
  EXPECT_EQ(Pki().Read("verified"), kContent);
  EXPECT_EQ(Name(Verify(kContent, Pki().Read("ours"), "trust.pse").Reason()), "DKV_OK");
}

INSTANTIATE_TEST_SUITE_P(KeysAndHashes, SignWith,
                         ::testing::Combine(::testing::Values("signer.pse", "rsa.pse"),
                                            ::testing::Values("SHA256", "SHA384", "SHA512")));

TEST(Sign, PutsInWhatAVerifierNeeds) {
  Pki().Write("ours", Sign(kContent, "signer.pse"));
  const std::string text = Pki().Run("openssl cms -cmsout -noout -print -inform DER -in ours");
  for (const char* part : {"contentType", "signingTime", "messageDigest", "id-smime-aa-signingCertificateV2",
                           "subject: CN=signer", "subject: CN=Test Intermediate", "eContent: <ABSENT>"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part;
  }
  EXPECT_EQ(text.find("subject: CN=Test Root"), std::string::npos);
}

TEST(Sign, EmptyAndLargeContent) {
  for (const std::string& content : {std::string(), std::string(3'000'000, '\r')}) {
    EXPECT_EQ(Verify(content, Sign(content, "signer.pse"), "trust.pse").rc, DKV_OK);
  }
}

struct Refusal {
  const char* profile;
  const char* password;
  int rc;
};

// Signatures that nobody could accept are not made, and each way a profile can be wrong has its code.
TEST(Sign, Refusals) {
  const Refusal rows[] = {
      {"missing.pse", nullptr, DKV_ERR_NO_PSE},       {"sec/", nullptr, DKV_ERR_NO_PSE},
      {"nosuchname", nullptr, DKV_ERR_NO_PSE},        {"signer.p12", nullptr, DKV_ERR_PASSWORD},
      {"signer.p12", "wrong", DKV_ERR_PASSWORD},      {"encrypted.pse", nullptr, DKV_ERR_PASSWORD},
      {"encrypted.pse", "", DKV_ERR_PASSWORD},        {"encrypted.pse", "wrong", DKV_ERR_PASSWORD},
      {"nonsense.pse", nullptr, DKV_ERR_PSE_FORMAT},  {"empty.pse", nullptr, DKV_ERR_PSE_FORMAT},
      {"damaged.pse", nullptr, DKV_ERR_PSE_FORMAT},   {"twokeys.pse", nullptr, DKV_ERR_PSE_FORMAT},
      {"trust.pse", nullptr, DKV_ERR_PSE_NO_KEY},     {"keyonly.pse", nullptr, DKV_ERR_PSE_NO_CERT},
      {"mismatch.pse", nullptr, DKV_ERR_PSE_NO_CERT}, {"expired.pse", nullptr, DKV_ERR_EXPIRED},
      {"future.pse", nullptr, DKV_ERR_NOT_YET_VALID}, {"weak.pse", nullptr, DKV_ERR_WEAK},
      {"mailer.pse", nullptr, DKV_ERR_EXT_KEY_USAGE}, {"sealer.pse", nullptr, DKV_ERR_KEY_USAGE},
  };
  for (const Refusal& row : rows) {
    int rc = -1;
    Sign(kContent, row.profile, row.password, "SHA256", &rc);
    EXPECT_EQ(Name(rc), Name(row.rc)) << row.profile;
  }
}

TEST(Sign, ProfilesThatWork) {
  const Refusal rows[] = {
      {"signer.p12", "secret", DKV_OK}, {"encrypted.pse", "secret", DKV_OK}, {"empty.p12", nullptr, DKV_OK},
      {"empty.p12", "", DKV_OK},        {"lonely.pse", nullptr, DKV_OK},     {"plain.pse", nullptr, DKV_OK},
      {"signer.pse", "unused", DKV_OK},
  };
  for (const Refusal& row : rows) {
    int rc = -1;
    Sign(kContent, row.profile, row.password, "SHA256", &rc);
    EXPECT_EQ(Name(rc), "DKV_OK") << row.profile;
  }
}

TEST(Sign, RefusesOtherHashesAndFormats) {
  for (const char* hash : {"SHA1", "MD5", "sha256", "", "CRC32"}) {
    int rc = -1;
    Sign(kContent, "signer.pse", nullptr, hash, &rc);
    EXPECT_EQ(rc, DKV_ERR_ALGORITHM) << hash;
  }
  const std::string content = kContent;
  const DkvOctetstring bytes = View(content);
  const SignerEntry key = Entry("signer.pse");
  DkvOctetstring* out = nullptr;
  EXPECT_EQ(DkvLibSign(Lib(), "CADES", "SHA256", &bytes, key.get(), &out), DKV_ERR_FORMAT);
  EXPECT_EQ(DkvLibSign(Lib(), "PKCS7", "SHA256", nullptr, key.get(), &out), DKV_ERR_ARGUMENT);
  EXPECT_EQ(DkvLibSign(Lib(), "PKCS7", "SHA256", &bytes, nullptr, &out), DKV_ERR_ARGUMENT);
  EXPECT_EQ(out, nullptr);
}

// FIPS 180-4 example "abc".
TEST(Digest, PublishedVector) {
  const std::string abc = "abc";
  const DkvOctetstring bytes = View(abc);
  DkvOctetstring* digest = nullptr;
  ASSERT_EQ(DkvLibDigest(Lib(), "SHA256", &bytes, &digest), DKV_OK);
  EXPECT_EQ(
      Take(digest),
      std::string("\xba\x78\x16\xbf\x8f\x01\xcf\xea\x41\x41\x40\xde\x5d\xae\x22\x23\xb0\x03\x61\xa3\x96\x17"
                  "\x7a\x9c\xb4\x10\xff\x61\xf2\x00\x15\xad",
                  32));
}

// A file of that name in the working directory must not become the program's trust.
TEST(ProfileNames, ReservedNamesIgnoreTheWorkingDirectory) {
  const std::string signature = Sign(kContent, "signer.pse");
  const auto before = std::filesystem::current_path();
  const Scratch elsewhere;
  std::filesystem::current_path(elsewhere.Path());
  Pki().Run("cp lonely.pse '" + elsewhere.File("QELvalidation") + "' && cp foreign.crt '" +
            elsewhere.File("QELverify") + "' && cp root.crt '" + elsewhere.File("plainname") + "'");
  EXPECT_EQ(Verify(kContent, signature, "QELverify").rc, DKV_OK);  // SECUDIR's, with our root
  EXPECT_EQ(Verify(kContent, signature, "plainname").rc, DKV_OK);  // a file that is there
  int rc = -1;
  Sign(kContent, "QELvalidation", nullptr, "SHA256", &rc);
  EXPECT_EQ(rc, DKV_ERR_NO_PSE);  // SECUDIR has none
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace tolven::test

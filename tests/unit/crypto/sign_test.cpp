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

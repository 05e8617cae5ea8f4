#include <openssl/provider.h>

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
                         ::testing::Combine(::testing::Values("signer.pse", "rsa.pse", "pss.pse"),
                                            ::testing::Values("SHA256", "SHA384", "SHA512")));

// Whose certificate the openssl command finds in a signature.
std::string SignerOf(const std::string& signature) {
  Pki().Write("content", kContent);
  Pki().Write("ours", signature);
  Pki().Run(
      "openssl cms -verify -binary -inform DER -in ours -content content -CAfile root.crt -purpose any "
      "-signer found.crt -out verified 2>&1");
  return Pki().Read("found.crt");
}

// The renewal that lives longest signs: not the expired one, nor the one for mail that lives longer still.
TEST(Sign, RenewedCertificate) {
  EXPECT_EQ(SignerOf(Sign(kContent, "renewed.pse")), Pki().Read("signer_long.crt"));
  EXPECT_EQ(SignerOf(Sign(kContent, "signer.pse")), Pki().Read("signer.crt"));
}

// A reader who trusts another root of the same authority finds the way over what is embedded.
TEST(Sign, EveryWayIsEmbedded) {
  const std::string signature = Sign(kContent, "cross.pse");
  for (const char* trust : {"trust.pse", "other.pse"}) {
    EXPECT_EQ(Name(Verify(kContent, signature, trust).Reason()), "DKV_OK") << trust;
  }
  EXPECT_EQ(Name(Verify(kContent, Sign(kContent, "signer.pse"), "other.pse").Reason()),
            "DKV_ERR_WRONG_SIGNER");
}

TEST(Sign, WarnsOfAGapInTheChain) {
  const std::pair<const char*, bool> rows[] = {{"alone.pse", true},   {"gap.pse", true},
                                               {"signer.pse", false}, {"cross.pse", false},
                                               {"rsa.pse", false},    {"lonely.pse", false}};
  for (const auto& [profile, warned] : rows) {
    Sign(kContent, profile);
    EXPECT_EQ(Info().find("CN=Test Intermediate") != std::string::npos, warned) << profile << Info();
  }
}

TEST(Sign, OldPkcs12) {
  const std::string signature = Sign(kContent, "legacy.p12", "secret");
  EXPECT_EQ(Name(Verify(kContent, signature, "trust.pse").Reason()), "DKV_OK");
  // The old ciphers are not let into the program.
  EXPECT_EQ(OSSL_PROVIDER_available(nullptr, "legacy"), 0);
  setenv("OPENSSL_MODULES", "/nonexistent", 1);
  int rc = -1;
  Sign(kContent, "legacy.p12", "secret", "SHA256", &rc);
  unsetenv("OPENSSL_MODULES");
  EXPECT_EQ(Name(rc), "DKV_ERR_ALG_NOT_SUPPORTED");
  EXPECT_NE(Info().find("RC2-40-CBC"), std::string::npos) << Info();
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
      {"legacy.p12", "wrong", DKV_ERR_PASSWORD},
  };
  for (const Refusal& row : rows) {
    int rc = -1;
    Sign(kContent, row.profile, row.password, "SHA256", &rc);
    EXPECT_EQ(Name(rc), Name(row.rc)) << row.profile;
  }
}

struct MoreThanACode {
  const char* profile;
  const char* password;
  const char* hash;
  int rc;
  const char* info;
};

TEST(Sign, RefusalsSayMore) {
  const MoreThanACode rows[] = {
      {"ed25519.pse", nullptr, "SHA256", DKV_ERR_ALG_NOT_SUPPORTED, "ED25519"},
      {"des.pse", "secret", "SHA256", DKV_ERR_ALG_NOT_SUPPORTED, "DES-CBC"},
      {"pss256.pse", nullptr, "SHA512", DKV_ERR_ALGORITHM, "hash algorithm"},
      {"nosuchname", nullptr, "SHA256", DKV_ERR_NO_PSE, "/sec/nosuchname.pse and /"},
      {"pipe.pse", nullptr, "SHA256", DKV_ERR_NO_PSE, "not a regular file"},
  };
  Pki().Run("mkfifo pipe.pse");
  for (const MoreThanACode& row : rows) {
    int rc = -1;
    Sign(kContent, row.profile, row.password, row.hash, &rc);
    EXPECT_EQ(Name(rc), Name(row.rc)) << row.profile;
    EXPECT_NE(Info().find(row.info), std::string::npos) << Info();
  }
  EXPECT_EQ(Name(Verify(kContent, Sign(kContent, "pss256.pse"), "trust.pse").Reason()), "DKV_OK");
}

// A file of the working directory, which may be somebody's delivery, must not become trust or key.
TEST(ProfileNames, MeanSecudirAlone) {
  const std::string signature = Sign(kContent, "signer.pse");
  const auto before = std::filesystem::current_path();
  const Scratch elsewhere;
  std::filesystem::current_path(elsewhere.Path());
  Pki().Run("cp lonely.pse '" + elsewhere.File("QELvalidation") + "' && cp foreign.crt '" +
            elsewhere.File("QELverify") + "' && cp root.crt '" + elsewhere.File("plainname") + "'");
  Pki().Run("cp root.crt sec/second && mkfifo sec/second.pse && cp signer.pse sec/release.pse");
  EXPECT_EQ(Verify(kContent, signature, "QELverify").rc, DKV_OK);  // SECUDIR's, with our root
  EXPECT_EQ(Name(Verify(kContent, signature, "plainname").Reason()), "DKV_ERR_WRONG_SIGNER");
  EXPECT_EQ(Verify(kContent, signature, "./plainname").rc, DKV_OK);  // a path
  EXPECT_EQ(Verify(kContent, signature, "second").rc, DKV_OK);       // the pipe of a better name is none
  int rc = -1;
  Sign(kContent, "release", nullptr, "SHA256", &rc);
  EXPECT_EQ(rc, DKV_OK);
  Sign(kContent, "plainname", nullptr, "SHA256", &rc);
  EXPECT_EQ(rc, DKV_ERR_NO_PSE);
  Sign(kContent, "QELvalidation", nullptr, "SHA256", &rc);
  EXPECT_EQ(rc, DKV_ERR_NO_PSE);  // SECUDIR has none
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace tolven::test

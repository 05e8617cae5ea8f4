#include <gtest/gtest.h>

#include "manifest_signing/signing_world.h"
#include "signing/crypto/dkv.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using test::AddFiles;
using test::Initialised;
using test::Pki;
using test::Scratch;

int Sign(ManifestContext* context, const std::string& key, const char* password = nullptr) {
  return ManifestLocalSign(context, key.c_str(), nullptr, password, nullptr, nullptr);
}

// The openssl command checks body and signature, knowing nothing of the document around them.
void ExpectOpensslAccepts(std::string_view document, const std::string& trust) {
  Scratch scratch;
  scratch.Write("body", test::BodyOf(document));
  test::SignatureOf(scratch, document);
  std::string output;
  EXPECT_EQ(scratch.RunStatus(
                "openssl cms -verify -binary -inform DER -in der -content body -purpose any -CAfile '" +
                    Pki().File(trust) + "' -out verified 2>&1",
                &output),
            0)
      << output;
  EXPECT_EQ(scratch.Read("verified"), test::BodyOf(document));
}

TEST(ManifestSign, SignedOnceAndNeverInReadMode) {
  const ManifestContextPtr context = Initialised("PKCS7");
  AddFiles(context.get(), {{"a", "abc"}});
  ASSERT_EQ(Sign(context.get(), Pki().File("signer.pse")), SMF_OK);
  const std::string document(ManifestGetText(context.get()));
  EXPECT_NE(Sign(context.get(), Pki().File("signer.pse")), SMF_OK);
  EXPECT_NE(ManifestOpenFile(context.get(), "b", 1), SMF_OK);
  EXPECT_EQ(ManifestGetText(context.get()), document);

  ASSERT_EQ(test::Parse(context.get(), document), SMF_OK);
  EXPECT_NE(Sign(context.get(), Pki().File("signer.pse")), SMF_OK);
  EXPECT_EQ(ManifestGetLastError(context.get()), "Manifest context is not ready to sign (read mode)");
}

TEST(ManifestSign, FailureLeavesTheDocumentOpen) {
  const ManifestContextPtr context = Initialised("PKCS7");
  AddFiles(context.get(), {{"a", "abc"}});
  const std::string before(ManifestGetText(context.get()));
  EXPECT_EQ(Sign(context.get(), Pki().File("missing.pse")), SMF_ESIGNATURE);
  EXPECT_EQ(ManifestLastDkvErrorCode(context.get()), DKV_ERR_NO_PSE);
  EXPECT_EQ(ManifestDkvErrorName(DKV_ERR_NO_PSE), "DKV_ERR_NO_PSE");
  EXPECT_NE(ManifestGetLastError(context.get()).find("missing.pse"), std::string::npos);
  EXPECT_NE(ManifestGetLastError(context.get()).find("tolven-pse"), std::string::npos);
  EXPECT_EQ(ManifestGetText(context.get()), before);
  AddFiles(context.get(), {{"b", "def"}});
  EXPECT_EQ(Sign(context.get(), Pki().File("signer.pse")), SMF_OK);
  ExpectOpensslAccepts(ManifestGetText(context.get()), "root.crt");
}

TEST(ManifestSign, IntoABuffer) {
  char buffer[8192];
  std::size_t written = 1;
  const ManifestContextPtr small = Initialised("PKCS7");
  const std::string key = Pki().File("signer.pse");
  EXPECT_EQ(ManifestSign(small.get(), key.c_str(), nullptr, nullptr, nullptr, 0, &written, nullptr, nullptr),
            SMF_EINVARG);
  EXPECT_EQ(ManifestGetLastError(small.get()), "Output buffer for manifest file is null");
  EXPECT_EQ(ManifestSign(small.get(), key.c_str(), nullptr, nullptr, buffer, 100, &written, nullptr, nullptr),
            SMF_EINVARG);
  EXPECT_EQ(written, 0u);
  const ManifestContextPtr context = Initialised("PKCS7");
  AddFiles(context.get(), {{"a", "abc"}});
  ASSERT_EQ(ManifestSign(context.get(), key.c_str(), nullptr, nullptr, buffer, sizeof buffer, &written,
                         nullptr, nullptr),
            SMF_OK);
  EXPECT_EQ(std::string_view(buffer, written), ManifestGetText(context.get()));
}

TEST(ManifestInit, WhatItRefuses) {
  struct Row {
    const char* library;
    const char* fileHash;
    const char* format;
    const char* signatureHash;
    int code;
    const char* text;
  };
  const char* good = TOLVEN_QELCRYPTO;
  const Row rows[] = {
      {"/nonexistent/libqelcrypto.so", nullptr, nullptr, nullptr, SMF_ELIBRARY,
       "QEL Crypto Library could not be loaded"},
      {TOLVEN_FOREIGN_LIBRARY, nullptr, nullptr, nullptr, SMF_ELIBRARY,
       "Manifest verification library must be QELCRYPTOLIB"},
      {TOLVEN_OLD_LIBRARY, nullptr, nullptr, nullptr, SMF_ELIBRARY,
       "QELCRYPTOLIB patch level for software signatures must be 35 but it is 34. Please update."},
      {good, "SHA224", nullptr, nullptr, SMF_EDIGESTLIB, "Invalid file hash algorithm supplied"},
      {good, nullptr, nullptr, "SHA", SMF_EDIGESTLIB, "Invalid signature hash algorithm supplied"},
      {good, nullptr, "PKCS12", nullptr, SMF_EINVARG, "Invalid DKV format supplied (must be PKCS7-TSTAMP)"},
      {good, "", "", "", SMF_OK, ""}};
  ASSERT_EQ(ManifestStartup(), SMF_OK);
  for (const Row& row : rows) {
    const ManifestContextPtr context = ManifestMakeContext();
    EXPECT_EQ(ManifestInit(context.get(), row.library, row.fileHash, row.format, row.signatureHash),
              row.code);
    EXPECT_EQ(ManifestGetLastError(context.get()), row.text);
    if (row.code == SMF_OK) {
      EXPECT_STREQ(ManifestFileHashAlgorithm(context.get()), "SHA256");
      EXPECT_EQ(ManifestSignatureFormat(context.get()), "PKCS7-TSTAMP");
      EXPECT_EQ(ManifestSignatureAlgorithm(context.get()), "SHA256");
    }
  }
}

TEST(ManifestTrace, NeverThroughALink) {
  ManifestCleanup();
  const test::Environment level("QELMANIFEST_TRACELEVEL", "1");
  const test::TempDir here;
  std::ofstream("victim") << "kept";
  std::filesystem::create_symlink("victim", "dev_qelmanifest.trc");
  Initialised("PKCS7");
  ManifestCleanup();
  EXPECT_EQ(std::filesystem::file_size("victim"), 4u);

  std::filesystem::remove("dev_qelmanifest.trc");
  Initialised("PKCS7");
  ManifestCleanup();
  EXPECT_GT(std::filesystem::file_size("dev_qelmanifest.trc"), 0u) << "without the link there is a trace";
}

}  // namespace
}  // namespace tolven

// What a program that calls the manifest library can do beside what this one does with it, and the libraries
// that it does not work with. The rest of signing stands in the end-to-end tests.

#include "crypto_support.h"
#include "manifest/document.h"

namespace tolven {
namespace {

using test::Pki;

ManifestContextPtr Initialised() {
  EXPECT_EQ(ManifestStartup(), SMF_OK);
  ManifestContextPtr context = ManifestMakeContext();
  EXPECT_EQ(ManifestInit(context.get(), TOLVEN_QELCRYPTO, "SHA256", "PKCS7", "SHA256"), SMF_OK)
      << ManifestGetLastError(context.get());
  test::AddFiles(context.get(), {{"a", "abc"}});
  return context;
}

int SignInto(ManifestContext* context, const std::string& key, char* buffer, std::size_t size,
             std::size_t* written) {
  return ManifestSign(context, key.c_str(), nullptr, nullptr, buffer, size, written, nullptr, nullptr);
}

TEST(ManifestSign, OnceIntoABufferAndNeverInReadMode) {
  char buffer[8192];
  std::size_t written = 1;
  const std::string key = Pki().File("signer.pse");
  const ManifestContextPtr small = Initialised();
  EXPECT_EQ(SignInto(small.get(), key, nullptr, 0, &written), SMF_EINVARG);
  EXPECT_EQ(ManifestGetLastError(small.get()), "Output buffer for manifest file is null");
  EXPECT_EQ(SignInto(small.get(), key, buffer, 100, &written), SMF_EINVARG);
  EXPECT_EQ(written, 0U);

  const ManifestContextPtr context = Initialised();
  const std::string before(ManifestGetText(context.get()));
  EXPECT_EQ(SignInto(context.get(), Pki().File("missing.pse"), buffer, sizeof buffer, &written),
            SMF_ESIGNATURE);
  EXPECT_EQ(ManifestLastDkvErrorCode(context.get()), DKV_ERR_NO_PSE);
  EXPECT_EQ(ManifestGetText(context.get()), before) << "a failure leaves the document open";
  test::AddFiles(context.get(), {{"b", "def"}});
  ASSERT_EQ(SignInto(context.get(), key, buffer, sizeof buffer, &written), SMF_OK);
  const std::string document(buffer, written);
  EXPECT_EQ(document, ManifestGetText(context.get()));

  EXPECT_NE(SignInto(context.get(), key, buffer, sizeof buffer, &written), SMF_OK);
  EXPECT_NE(ManifestOpenFile(context.get(), "c", 1), SMF_OK);
  EXPECT_EQ(ManifestGetText(context.get()), document);
  ASSERT_EQ(test::Parse(context.get(), document), SMF_OK);
  EXPECT_NE(SignInto(context.get(), key, buffer, sizeof buffer, &written), SMF_OK);
  EXPECT_EQ(ManifestGetLastError(context.get()), "Manifest context is not ready to sign (read mode)");
}

TEST(ManifestInit, WhatItRefuses) {
  struct Row {
    const char* library;
    const char* format;
    int code;
    const char* text;
  };
  const Row rows[] = {
      {TOLVEN_FOREIGN_LIBRARY, nullptr, SMF_ELIBRARY, "Manifest verification library must be QELCRYPTOLIB"},
      {TOLVEN_OLD_LIBRARY, nullptr, SMF_ELIBRARY,
       "QELCRYPTOLIB patch level for software signatures must be 35 but it is 34. Please update."},
      {TOLVEN_QELCRYPTO, "PKCS12", SMF_EINVARG, "Invalid DKV format supplied (must be PKCS7-TSTAMP)"}};
  ASSERT_EQ(ManifestStartup(), SMF_OK);
  for (const Row& row : rows) {
    const ManifestContextPtr context = ManifestMakeContext();
    EXPECT_EQ(ManifestInit(context.get(), row.library, nullptr, row.format, nullptr), row.code);
    EXPECT_EQ(ManifestGetLastError(context.get()), row.text);
  }
}

}  // namespace
}  // namespace tolven

#include <gtest/gtest.h>

#include "manifest_signing/signing_world.h"
#include "signing/crypto/dkv.h"
#include "signing/manifest/timestamp_request.h"

namespace tolven {
namespace {

using test::Initialised;
using test::Pki;
using test::Scratch;
using test::Tsa;

std::string Url(const std::string& path) {
  return "http://127.0.0.1:" + Tsa().plain + path;
}

// A signature to be stamped, made once.
const std::vector<std::uint8_t>& Signature() {
  static const std::vector<std::uint8_t> signature = [] {
    Scratch scratch;
    const ManifestContextPtr context = Initialised("PKCS7");
    const std::string key = Pki().File("signer.pse");
    EXPECT_EQ(ManifestLocalSign(context.get(), key.c_str(), nullptr, nullptr, nullptr, nullptr), SMF_OK);
    const std::string der = test::SignatureOf(scratch, ManifestGetText(context.get()));
    return std::vector<std::uint8_t>(der.begin(), der.end());
  }();
  return signature;
}

SmfTimestampRequest RequestTo(const std::string& url, const std::string& proxy = "") {
  Initialised("PKCS7");
  SmfTimestampRequest request;
  request.library = test::Library();
  request.signature = Signature();
  request.pse = Pki().File("signer.pse");
  request.tsaUrl = url;
  request.proxyUrl = proxy;
  request.limits = {3000, 3000};
  return request;
}

TEST(Timestamp, SignedAndStampedAndVerified) {
  const ManifestContextPtr writer = Initialised("PKCS7-TSTAMP");
  test::AddFiles(writer.get(), {{"a b", "abc"}});
  const std::string key = Pki().File("signer.pse");
  ASSERT_EQ(ManifestLocalSign(writer.get(), key.c_str(), nullptr, nullptr, Url("/good").c_str(), nullptr),
            SMF_OK)
      << ManifestGetLastError(writer.get());
  const std::string document(ManifestGetText(writer.get()));

  const ManifestContextPtr reader = Initialised("PKCS7");
  ASSERT_EQ(ManifestVerify(reader.get(), document.data(), document.size(), nullptr, nullptr, nullptr, {}, 0),
            SMF_OK)
      << ManifestGetLastError(reader.get());
  EXPECT_EQ(ManifestGetErrorCategory(reader.get()), MANIFEST_CATEGORY_NONE);
  EXPECT_NE(ManifestTsaName(reader.get()).find("CN=Test Intermediate"), std::string::npos);

  // Both certificates are looked up.
  const std::string crl = Pki().Read("fresh.crl");
  const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(crl.data()), crl.size());
  EXPECT_EQ(
      ManifestVerify(reader.get(), document.data(), document.size(), nullptr, nullptr, nullptr, bytes, 0),
      SMF_OK)
      << ManifestGetLastError(reader.get());

  Pki().Run(
      "openssl ca -config pki.cnf -revoke tsa.crt -crl_reason superseded 2>/dev/null &&"
      " openssl ca -config pki.cnf -gencrl -out tsa_revoked.crl 2>/dev/null");
  const std::string revoked = Pki().Read("tsa_revoked.crl");
  const std::span<const std::uint8_t> revokedBytes(reinterpret_cast<const std::uint8_t*>(revoked.data()),
                                                   revoked.size());
  EXPECT_EQ(ManifestVerify(reader.get(), document.data(), document.size(), nullptr, nullptr, nullptr,
                           revokedBytes, 0),
            SMF_ECRL_REVOKED);
  EXPECT_EQ(ManifestGetLastError(reader.get()), "Timestamp Certificate revoked\nRevocation Reason Code = 4");

  // The token covers the signature value: openssl finds it there.
  Scratch scratch;
  test::SignatureOf(scratch, document);
  EXPECT_NE(scratch.Run("openssl cms -cmsout -print -inform DER -in der").find("id-smime-aa-timeStampToken"),
            std::string::npos);
}

struct BadCase {
  std::string url;
  std::string proxy;
  std::string text;  // in the error text
  int dkvCode = 0;
};

void ExpectFailure(const BadCase& row, const HttpLimits& limits = {3000, 3000}) {
  SmfTimestampRequest request = RequestTo(row.url, row.proxy);
  request.limits = limits;
  EXPECT_EQ(SmfUtilTimestampRequest(request), SMF_ETSA) << row.url << row.proxy;
  EXPECT_TRUE(request.errorText.starts_with("Timestamp request failed\n"));
  EXPECT_NE(request.errorText.find(row.text), std::string::npos) << request.errorText;
  EXPECT_EQ(request.dkvErrorCode, row.dkvCode) << request.errorText;
  EXPECT_EQ(request.errorCode, SMF_ETSA);
  EXPECT_TRUE(request.stamped.empty());
}

TEST(Timestamp, SilenceEnds) {
  ExpectFailure({Url("/silent"), "", "The server did not answer in time"}, {3000, 300});
  ExpectFailure({Url("/drip"), "", "The server did not answer in time"}, {3000, 300});
}

}  // namespace
}  // namespace tolven

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>

#include "crypto_support.h"
#include "signing/crypto/dkv_loader.h"
#include "signing/crypto/dkv_trace.h"
#include "signing/crypto/qelsecu.h"

namespace tolven::test {
namespace {

// Exactly the names of the interface: a name more could be bound by somebody else's library by mistake.
TEST(Library, ExportsTheInterfaceAndNothingElse) {
  std::istringstream names(Pki().Run("nm -D --defined-only '" TOLVEN_QELCRYPTO "' | awk '{ print $3 }'"));
  const std::set<std::string> exported(std::istream_iterator<std::string>(names), {});
  const std::set<std::string> expected = {"DkvAddTimeStampResp",
                                          "DkvCertfromASN1",
                                          "DkvCheckCertWithCrlArray",
                                          "DkvDELDkvOctetstring",
                                          "DkvDELSigRcpDkvInfo",
                                          "DkvDELSigRcpDkvInfoList",
                                          "DkvDecodeCrlArray",
                                          "DkvDigest",
                                          "DkvEncode",
                                          "DkvFreeCertificate",
                                          "DkvFreeCrlArray",
                                          "DkvFreeParameter",
                                          "DkvGetTimeStampReq",
                                          "DkvINSSigRcpDkvInfo",
                                          "DkvNEWSigRcpDkvInfo",
                                          "DkvParseCertificate",
                                          "DkvQueryProperties",
                                          "DkvRcDesc",
                                          "DkvRcName",
                                          "DkvSign",
                                          "DkvVerify",
                                          "DkvVersion",
                                          "QelSSLDone",
                                          "QelSSLInit",
                                          "QelSSLSessionClose",
                                          "QelSSLSessionInit",
                                          "QelSSLSessionRead",
                                          "QelSSLSessionStart",
                                          "QelSSLSessionWrite",
                                          "Qelcryptolib_RegisterTraceCallback",
                                          "Qelcryptolib_SetTraceLevel",
                                          "Qelcryptolib_UnregisterTraceCallback",
                                          "qelcr_done",
                                          "qelcr_get_property_int",
                                          "qelcr_get_property_string",
                                          "qelcr_init",
                                          "qelcr_set_property_int"};
  EXPECT_EQ(exported, expected);
}

TEST(Library, IsTheMakersOwnAndNewEnough) {
  EXPECT_TRUE(DkvSupToolkitIsQELCrypto(Lib()));
  int version = 0;
  int patchLevel = 0;
  ASSERT_TRUE(DkvSupToolkitVersion(Lib(), &version, &patchLevel));
  EXPECT_GE(version, 8);
  EXPECT_GE(patchLevel, 35);
  EXPECT_EQ(DkvSupGetVantaCryptoLibVersionString(Lib()).rfind("QELCRYPTOLIB 8.0.35, OpenSSL 3", 0), 0U);
  int value = 0;
  EXPECT_EQ(DkvLibGetPropertyInt(Lib(), "PATCH_LEVEL", &value), DKV_OK);
  EXPECT_EQ(value, patchLevel);
  EXPECT_EQ(DkvLibGetPropertyInt(Lib(), "NO_SUCH", &value), DKV_ERR_PROPERTY);
  EXPECT_EQ(DkvLibSetPropertyInt(Lib(), "PATCH_LEVEL", 99), DKV_ERR_PROPERTY);
}

// An older caller's smaller structure is filled as far as it reaches, and no further.
TEST(Library, SizedStructures) {
  DkvProperties properties;
  std::memset(&properties, 0x5A, sizeof properties);
  properties.size = offsetof(DkvProperties, version);
  ASSERT_EQ(DkvLibQueryProperties(Lib(), &properties), DKV_OK);
  EXPECT_STREQ(properties.maker, "QELCRYPTOLIB");
  EXPECT_EQ(properties.version, 0x5A5A5A5A);
  properties.size = sizeof(std::size_t);
  EXPECT_EQ(DkvLibQueryProperties(Lib(), &properties), DKV_ERR_ARGUMENT);
}

TEST(Library, NamesItsCodes) {
  EXPECT_STREQ(DkvErrorName(DKV_OK), "DKV_OK");
  EXPECT_STREQ(DkvErrorName(DKV_ERR_WRONG_SIGNER), "DKV_ERR_WRONG_SIGNER");
  EXPECT_STREQ(DkvErrorDescription(DKV_ERR_EXPIRED), "A certificate has expired.");
  EXPECT_EQ(DkvErrorName(4711), nullptr);
  EXPECT_EQ(DkvErrorDescription(-1), nullptr);
}

TEST(Library, TracesWhatFails) {
  EXPECT_TRUE(QelSecu_HasFunction("Qelcryptolib_RegisterTraceCallback"));
  std::FILE* file = std::fopen(Pki().File("trace").c_str(), "w");
  ASSERT_NE(file, nullptr);
  VantaCryptoLibSetTraceFile(file);
  VantaCryptoLibSetTraceLevel(0);
  EXPECT_EQ(Verify("changed", "nonsense", "trust.pse").rc, DKV_ERR_ASN1);
  EXPECT_EQ(Pki().Read("trace"), "");
  VantaCryptoLibSetTraceLevel(1);
  EXPECT_EQ(Verify("changed", "nonsense", "trust.pse").rc, DKV_ERR_ASN1);
  VantaCryptoLibSetTraceLevel(0);
  VantaCryptoLibSetTraceFile(nullptr);
  std::fclose(file);
  EXPECT_NE(Pki().Read("trace").find("DkvVerify: 33 DKV_ERR_ASN1"), std::string::npos);
}

TEST(Library, ListsGrowAndReleaseNull) {
  SigRcpDkvInfoList* list = nullptr;
  for (int i = 0; i < 3; ++i) {
    SigRcpDkvInfo* info = nullptr;
    ASSERT_EQ(DkvLibNEWSigRcpDkvInfo(Lib(), "name", "secret", &info), DKV_OK);
    ASSERT_EQ(DkvLibINSSigRcpDkvInfo(Lib(), &list, info), DKV_OK);
  }
  EXPECT_EQ(list->count, 3U);
  EXPECT_STREQ(list->entries[2]->profile, "name");
  EXPECT_EQ(DkvLibINSSigRcpDkvInfo(Lib(), &list, nullptr), DKV_ERR_ARGUMENT);
  EXPECT_EQ(DkvLibDELSigRcpDkvInfoList(Lib(), list), DKV_OK);
  EXPECT_EQ(DkvLibDELSigRcpDkvInfoList(Lib(), nullptr), DKV_OK);
  EXPECT_EQ(DkvLibDELSigRcpDkvInfo(Lib(), nullptr), DKV_OK);
  EXPECT_EQ(DkvLibDELDkvOctetstring(Lib(), nullptr), DKV_OK);
  EXPECT_EQ(DkvLibFreeCertificate(Lib(), nullptr), DKV_OK);
  EXPECT_EQ(DkvLibFreeCrlArray(Lib(), nullptr), DKV_OK);
  EXPECT_EQ(DkvLibFreeParameter(Lib(), nullptr), DKV_OK);
  SigRcpDkvInfo* info = nullptr;
  EXPECT_EQ(DkvLibNEWSigRcpDkvInfo(Lib(), nullptr, nullptr, &info), DKV_ERR_ARGUMENT);
}

}  // namespace
}  // namespace tolven::test

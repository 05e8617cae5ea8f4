#include <cstddef>
#include <cstdio>
#include <cstring>

#include "crypto_support.h"
#include "signing/crypto/qelsecu.h"
#include "signing/crypto/trace.h"

namespace tolven::test {
namespace {

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

}  // namespace
}  // namespace tolven::test

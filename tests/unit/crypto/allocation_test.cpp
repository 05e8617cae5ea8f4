#include <openssl/crypto.h>

#include <cstdlib>

#include "timestamp_support.h"

namespace tolven::test {
namespace {

long allocationsLeft = -1;  // the one that makes it 0 fails; negative: none does

bool Fails() {
  return allocationsLeft > 0 && --allocationsLeft == 0;
}

void* Allocate(std::size_t size, const char* /*file*/, int /*line*/) {
  return Fails() ? nullptr : std::malloc(size);
}

void* Reallocate(void* memory, std::size_t size, const char* /*file*/, int /*line*/) {
  return Fails() ? nullptr : std::realloc(memory, size);
}

void Free(void* memory, const char* /*file*/, int /*line*/) {
  std::free(memory);
}

// Only possible before OpenSSL's first allocation.
const bool installed = CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1;

// Signs or stamps with the first allocation lost, another one, and so on until nothing is lost any more. What
// comes out as good must be good.
template <typename Step>
void LoseOneAfterTheOther(const char* format, long stride, Step step) {
  int failed = 0;
  int good = 0;
  for (long n = 1;; n += stride) {
    allocationsLeft = n;
    int rc = -1;
    const std::string made = step(&rc);
    const bool lost = allocationsLeft <= 0;
    allocationsLeft = -1;
    if (rc == DKV_OK) {
      ++good;
      EXPECT_EQ(Name(Verify(kContent, made, "trust.pse", format).Reason()), "DKV_OK") << n;
    } else {
      ++failed;
    }
    if (!lost) break;
  }
  EXPECT_GT(failed, 10);
  EXPECT_GT(good, 0);
}

TEST(LostAllocation, NeverABadSignature) {
  ASSERT_TRUE(installed);
  LoseOneAfterTheOther("PKCS7", 37,
                       [](int* rc) { return Sign(kContent, "signer.pse", nullptr, "SHA256", rc); });
}

TEST(LostAllocation, NeverACertificateWithoutAName) {
  Pki().Run("openssl x509 -in signer.crt -outform DER -out lost.der");
  const std::string der = Pki().Read("lost.der");
  const DkvOctetstring bytes = View(der);
  DkvCertificate* certificate = nullptr;
  ASSERT_EQ(DkvLibCertfromASN1(Lib(), &bytes, &certificate), DKV_OK);
  int failed = 0;
  for (bool lost = true; lost;) {
    allocationsLeft = failed + 1;
    DkvParameter* entries = nullptr;
    const int rc = DkvLibParseCertificate(Lib(), certificate, &entries);
    lost = allocationsLeft <= 0;
    allocationsLeft = -1;
    EXPECT_EQ(Name(rc), lost ? "DKV_ERR_MEMORY" : "DKV_OK") << failed;
    if (entries != nullptr) {
      EXPECT_STREQ(entries->entries[0].value, "CN=signer") << failed;
      EXPECT_STREQ(entries->entries[1].value, "CN=Test Intermediate") << failed;
    }
    DkvLibFreeParameter(Lib(), entries);
    if (lost) ++failed;
  }
  EXPECT_GT(failed, 10);
  DkvLibFreeCertificate(Lib(), certificate);
}

TEST(LostAllocation, NeverABadTimeStamp) {
  const std::string signature = Sign(kContent, "signer.pse");
  const std::string request = Request(signature);
  const std::string reply = OpensslReply(request);
  LoseOneAfterTheOther("PKCS7-TSTAMP", 139, [&](int* rc) {
    const Stamped stamped = AddReply(signature, request, reply, "trust.pse");
    *rc = stamped.rc;
    return stamped.signature;
  });
}

}  // namespace
}  // namespace tolven::test

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "signing/crypto/dkv_loader.h"
#include "signing/crypto/dkv_table.h"
#include "support/scratch.h"

namespace tolven::test {

// Made before the first test and removed after the last.
class World : public ::testing::Environment {
 public:
  static std::unique_ptr<Scratch>& Directory() {
    static std::unique_ptr<Scratch> directory;
    return directory;
  }
  static DkvTable& Table() {
    static DkvTable table;
    return table;
  }
  void SetUp() override {
    Directory() = std::make_unique<Scratch>();
    Directory()->Run(std::string("sh '" TOLVEN_MAKE_PKI "' .") + " || { tail make_pki.log; exit 1; }");
    setenv("SECUDIR", Directory()->File("sec").c_str(), 1);
    const int rc = DkvSupInitEx(TOLVEN_QELCRYPTO, &Table(), nullptr, nullptr, kDkvLevelAll);
    ASSERT_EQ(rc, kDkvFunctionsMissing);  // it implements what the program needs, not all 72
  }
  void TearDown() override {
    DkvSupEnd(&Table());
    Directory().reset();
  }
};

inline const auto* const world = ::testing::AddGlobalTestEnvironment(new World);

inline std::string Copy(const DkvOctetstring& octets) {
  return octets.octets == nullptr ? std::string()
                                  : std::string(reinterpret_cast<const char*>(octets.octets), octets.noctets);
}

// The certificate world of make_pki.sh, made once for the whole program, with SECUDIR pointing into it.
inline const Scratch& Pki() {
  return *World::Directory();
}

// The library under test, loaded once.
inline const DkvTable* Lib() {
  return &World::Table();
}

// A caller's octet string over text that must outlive it.
inline DkvOctetstring View(const std::string& bytes) {
  // The interface reads its input only.
  auto* octets = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  return {sizeof(DkvOctetstring), bytes.size(), octets};
}

// Takes an octet string that the library handed out; empty for null.
inline std::string Take(DkvOctetstring* octets) {
  if (octets == nullptr) return {};
  std::string bytes = Copy(*octets);
  DkvLibDELDkvOctetstring(Lib(), octets);
  return bytes;
}

// A profile of the world by file name ("signer.pse"); plain names go through as they are.
inline std::string Profile(const std::string& name) {
  return name.find('.') == std::string::npos || name.find('/') != std::string::npos ? name : Pki().File(name);
}

struct SignerDeleter {
  void operator()(SigRcpDkvInfo* info) const { DkvLibDELSigRcpDkvInfo(Lib(), info); }
};
using SignerEntry = std::unique_ptr<SigRcpDkvInfo, SignerDeleter>;

inline SignerEntry Entry(const std::string& profile, const char* password = nullptr) {
  SigRcpDkvInfo* info = nullptr;
  EXPECT_EQ(DkvLibNEWSigRcpDkvInfo(Lib(), Profile(profile).c_str(), password, &info), DKV_OK);
  return SignerEntry(info);
}

// "DKV_ERR_EXPIRED" for messages of the tests.
inline std::string Name(int rc) {
  const DkvAnyFunction function = Lib()->Get(DkvRow::DkvRcName);
  const char* name = reinterpret_cast<decltype(::DkvRcName)*>(function)(rc);
  return name == nullptr ? std::to_string(rc) : name;
}

// What DkvVerify said, its list copied and released.
struct Verdict {
  int rc = -1;
  int result = -1;
  std::string subject;
  int tokenPresent = -1;
  int tokenResult = -1;
  std::int64_t tokenTime = -1;
  std::string tsaId, tsaCertificate, tsaIssuerCertificate;

  // The reason: the signer's result when there is a signer, else the code.
  int Reason() const { return rc == DKV_ERR_SIGNER ? result : rc; }
};

inline Verdict Verify(const std::string& content, const std::string& signature, const std::string& profile,
                      const char* format = "PKCS7", const char* password = nullptr) {
  const DkvOctetstring bytes = View(content);
  const DkvOctetstring der = View(signature);
  const SignerEntry key = Entry(profile, password);
  SigRcpDkvInfoList* list = nullptr;
  Verdict verdict;
  verdict.rc = DkvLibVerify(Lib(), format, &bytes, &der, key.get(), &list);
  EXPECT_EQ(list != nullptr, verdict.rc == DKV_OK || verdict.rc == DKV_ERR_SIGNER) << Name(verdict.rc);
  if (list == nullptr) return verdict;
  EXPECT_EQ(list->count, 1U);
  const SigRcpDkvInfo& info = *list->entries[0];
  verdict.result = info.result;
  verdict.subject = info.subject;
  verdict.tokenPresent = info.tokenPresent;
  verdict.tokenResult = info.tokenResult;
  verdict.tokenTime = info.tokenTime;
  verdict.tsaId = info.tsaId;
  verdict.tsaCertificate = Copy(info.tsaCertificate);
  verdict.tsaIssuerCertificate = Copy(info.tsaIssuerCertificate);
  EXPECT_EQ(verdict.rc == DKV_OK, verdict.result == DKV_OK);
  EXPECT_EQ(DkvLibDELSigRcpDkvInfoList(Lib(), list), DKV_OK);
  return verdict;
}

// DkvSign; the code goes to rc when given, else it must be DKV_OK.
inline std::string Sign(const std::string& content, const std::string& profile,
                        const char* password = nullptr, const char* hash = "SHA256", int* rc = nullptr) {
  const DkvOctetstring bytes = View(content);
  const SignerEntry key = Entry(profile, password);
  DkvOctetstring* signature = nullptr;
  const int code = DkvLibSign(Lib(), "PKCS7", hash, &bytes, key.get(), &signature);
  EXPECT_EQ(signature != nullptr, code == DKV_OK);
  if (rc != nullptr) {
    *rc = code;
  } else {
    EXPECT_EQ(Name(code), "DKV_OK");
  }
  return Take(signature);
}

// A signature by the openssl command with a key and certificate of the world. options are those of "openssl
// cms".
inline std::string OpensslSign(const std::string& content, const std::string& signer,
                               const std::string& options = "") {
  Pki().Write("content", content);
  Pki().Run("openssl cms -sign -binary -outform DER -nosmimecap -in content -out signature -signer " +
            signer + ".crt -inkey " + signer + ".key -certfile inter.crt " + options + " 2>&1");
  return Pki().Read("signature");
}

inline constexpr char kContent[] = "QEL-MANIFEST\nVersion: 1.0\r\n\nsome bytes\n";

// SECUDIR is another directory as long as this lives, with the given files of the world in it.
class OtherSecudir {
 public:
  explicit OtherSecudir(const std::vector<std::pair<std::string, std::string>>& files) {
    for (const auto& [name, source] : files) m_directory.Write(name, Pki().Read(source));
    setenv("SECUDIR", m_directory.Path().c_str(), 1);
  }
  ~OtherSecudir() { setenv("SECUDIR", Pki().File("sec").c_str(), 1); }
  OtherSecudir(const OtherSecudir&) = delete;
  OtherSecudir& operator=(const OtherSecudir&) = delete;

 private:
  Scratch m_directory;
};

// What the library adds to the code of its last call.
inline std::string Info() {
  const char* text = nullptr;
  EXPECT_EQ(DkvLibSecTKLastErrorInfo(Lib(), &text), DKV_OK);
  return text == nullptr ? "" : text;
}

}  // namespace tolven::test

#include "crypto_support.h"

#include "signing/crypto/dkv_loader.h"

namespace tolven::test {
namespace {

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

const auto* const world = ::testing::AddGlobalTestEnvironment(new World);

std::string Copy(const DkvOctetstring& octets) {
  return octets.octets == nullptr ? std::string()
                                  : std::string(reinterpret_cast<const char*>(octets.octets), octets.noctets);
}

}  // namespace

const Scratch& Pki() {
  return *World::Directory();
}

const DkvTable* Lib() {
  return &World::Table();
}

DkvOctetstring View(const std::string& bytes) {
  // The interface reads its input only.
  auto* octets = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  return {sizeof(DkvOctetstring), bytes.size(), octets};
}

std::string Take(DkvOctetstring* octets) {
  if (octets == nullptr) return {};
  std::string bytes = Copy(*octets);
  DkvLibDELDkvOctetstring(Lib(), octets);
  return bytes;
}

std::string Profile(const std::string& name) {
  return name.find('.') == std::string::npos || name.find('/') != std::string::npos ? name : Pki().File(name);
}

SignerEntry Entry(const std::string& profile, const char* password) {
  SigRcpDkvInfo* info = nullptr;
  EXPECT_EQ(DkvLibNEWSigRcpDkvInfo(Lib(), Profile(profile).c_str(), password, &info), DKV_OK);
  return SignerEntry(info);
}

Verdict Verify(const std::string& content, const std::string& signature, const std::string& profile,
               const char* format, const char* password) {
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

std::string Sign(const std::string& content, const std::string& profile, const char* password,
                 const char* hash, int* rc) {
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

std::string OpensslSign(const std::string& content, const std::string& signer, const std::string& options) {
  Pki().Write("content", content);
  Pki().Run("openssl cms -sign -binary -outform DER -nosmimecap -in content -out signature -signer " +
            signer + ".crt -inkey " + signer + ".key -certfile inter.crt " + options + " 2>&1");
  return Pki().Read("signature");
}

OtherSecudir::OtherSecudir(const std::vector<std::pair<std::string, std::string>>& files) {
  for (const auto& [name, source] : files) m_directory.Write(name, Pki().Read(source));
  setenv("SECUDIR", m_directory.Path().c_str(), 1);
}

OtherSecudir::~OtherSecudir() {
  setenv("SECUDIR", Pki().File("sec").c_str(), 1);
}

std::string Info() {
  const char* text = nullptr;
  EXPECT_EQ(DkvLibSecTKLastErrorInfo(Lib(), &text), DKV_OK);
  return text == nullptr ? "" : text;
}

std::string Name(int rc) {
  const DkvAnyFunction function = Lib()->Get(DkvRow::DkvRcName);
  const char* name = reinterpret_cast<decltype(::DkvRcName)*>(function)(rc);
  return name == nullptr ? std::to_string(rc) : name;
}

}  // namespace tolven::test

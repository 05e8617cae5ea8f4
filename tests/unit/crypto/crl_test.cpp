#include <ctime>
#include <map>
#include <sstream>

#include "crypto_support.h"

namespace tolven::test {
namespace {

struct CertificateDeleter {
  void operator()(DkvCertificate* certificate) const { DkvLibFreeCertificate(Lib(), certificate); }
};
using Certificate = std::unique_ptr<DkvCertificate, CertificateDeleter>;

Certificate Decode(const std::string& name) {
  static std::map<std::string, std::string> known;
  std::string& der = known[name];
  if (der.empty()) der = Pki().Run("openssl x509 -in " + name + ".crt -outform DER");
  const DkvOctetstring bytes = View(der);
  DkvCertificate* certificate = nullptr;
  EXPECT_EQ(DkvLibCertfromASN1(Lib(), &bytes, &certificate), DKV_OK);
  return Certificate(certificate);
}

struct CrlDeleter {
  void operator()(DkvCrlArray* crls) const { DkvLibFreeCrlArray(Lib(), crls); }
};
using Crls = std::unique_ptr<DkvCrlArray, CrlDeleter>;

Crls DecodeCrls(const std::string& content, int* rc) {
  const DkvOctetstring bytes = View(content);
  DkvCrlArray* crls = nullptr;
  *rc = DkvLibDecodeCrlArray(Lib(), &bytes, &crls);
  EXPECT_EQ(crls != nullptr, *rc == DKV_OK);
  return Crls(crls);
}

struct Row {
  const char* crl;  // files, joined by "+"
  const char* certificate;
  const char* issuer;  // null: unknown
  int rc;
  int reason;
};

constexpr int kKeyCompromise = 1;

TEST(Crl, LookUp) {
  const Row rows[] = {
      {"fresh.crl", "signer", "inter", DKV_OK, -1},
      {"fresh.der", "signer", "inter", DKV_OK, -1},
      {"fresh.crl", "revoked", "inter", DKV_ERR_REVOKED, kKeyCompromise},
      {"fresh.der", "revoked", "inter", DKV_ERR_REVOKED, kKeyCompromise},
      {"both.crl", "revoked", "inter", DKV_ERR_REVOKED, kKeyCompromise},
      {"both.der", "revoked", "inter", DKV_ERR_REVOKED, kKeyCompromise},
      {"both.crl", "signer", "inter", DKV_OK, -1},
      {"both.der", "stranger", "foreign", DKV_OK, -1},
      // The list says nothing about when; an expired certificate is still looked up.
      {"fresh.crl", "expired", "inter", DKV_OK, -1},
      {"outdated.crl", "signer", "inter", DKV_ERR_CRL_OUTDATED, -1},
      {"foreign.crl", "signer", "inter", DKV_ERR_CRL_MISSING, -1},
      {"fresh.crl", "inter", "root", DKV_ERR_CRL_MISSING, -1},
      {"fresh.crl", "lonely", "lonely", DKV_ERR_CRL_MISSING, -1},
      {"fresh.crl", "signer", nullptr, DKV_ERR_CRL_MISSING, -1},
      {"fresh.crl", "signer", "root", DKV_ERR_CRL_MISSING, -1},
      // The right name and another key: on the list's side, and on the issuer's.
      {"twin.crl", "signer", "inter", DKV_ERR_CRL_INVALID, -1},
      {"twin.crl", "revoked", "inter", DKV_ERR_CRL_INVALID, -1},
      {"sha1.crl", "signer", "inter", DKV_ERR_CRL_INVALID, -1},
      {"twin.crl+fresh.crl", "signer", "inter", DKV_OK, -1},
      {"fresh.crl+twin.crl", "revoked", "inter", DKV_ERR_REVOKED, kKeyCompromise},
      // A delta list with its base, and never without.
      {"fresh.crl", "late", "inter", DKV_OK, -1},
      {"fresh.crl+delta.crl", "late", "inter", DKV_ERR_REVOKED, 0},
      {"delta.crl+fresh.crl", "late", "inter", DKV_ERR_REVOKED, 0},
      {"fresh.crl+delta.crl", "signer", "inter", DKV_OK, -1},
      {"delta.crl", "signer", "inter", DKV_ERR_CRL_MISSING, -1},
      {"early.crl+delta.crl", "signer", "inter", DKV_ERR_CRL_OUTDATED, -1},
      {"fresh.crl+gap.crl", "signer", "inter", DKV_ERR_CRL_INVALID, -1},
      {"fresh.crl+delta_outdated.crl", "signer", "inter", DKV_ERR_CRL_OUTDATED, -1},
      {"newer.crl+delta_outdated.crl", "signer", "inter", DKV_OK, -1},
      // The number decides, not the place in the file; but what is revoked stays revoked.
      {"newer.crl+fresh.crl", "late", "inter", DKV_ERR_REVOKED, 0},
      {"fresh.crl+newer.crl", "late", "inter", DKV_ERR_REVOKED, 0},
      {"early.crl+fresh.crl", "signer", "inter", DKV_OK, -1},
      {"fresh.crl+early.crl", "signer", "inter", DKV_OK, -1},
      {"fresh.crl+outdated.crl", "signer", "inter", DKV_ERR_CRL_OUTDATED, -1},
      {"outdated.crl+fresh.crl", "signer", "inter", DKV_ERR_CRL_OUTDATED, -1},
      {"fresh.crl+forgetful.crl", "revoked", "inter", DKV_ERR_REVOKED, kKeyCompromise},
      {"forgetful.crl", "revoked", "inter", DKV_OK, -1},
  };
  for (const Row& row : rows) {
    int rc = -1;
    std::string list, lists;
    for (std::istringstream names(row.crl); std::getline(names, list, '+');) lists += Pki().Read(list);
    const Crls crls = DecodeCrls(lists, &rc);
    ASSERT_EQ(rc, DKV_OK) << row.crl;
    const Certificate certificate = Decode(row.certificate);
    const Certificate issuer = row.issuer == nullptr ? nullptr : Decode(row.issuer);
    int reason = -2;
    rc =
        DkvLibCheckCertWithCrlArray(Lib(), certificate.get(), issuer.get(), crls.get(), DKV_NO_TIME, &reason);
    EXPECT_EQ(Name(rc), Name(row.rc)) << row.crl << " " << row.certificate;
    EXPECT_EQ(reason, row.reason) << row.crl << " " << row.certificate;
  }
}

TEST(Crl, TheGivenTimeCounts) {
  int rc = -1;
  const Certificate certificate = Decode("signer");
  const Certificate issuer = Decode("inter");
  const auto check = [&](const char* file, std::int64_t time) {
    const Crls crls = DecodeCrls(Pki().Read(file), &rc);
    int reason = 0;
    return DkvLibCheckCertWithCrlArray(Lib(), certificate.get(), issuer.get(), crls.get(), time, &reason);
  };
  constexpr std::int64_t kJanuary2020 = 1579000000;
  const std::int64_t inAYear = std::time(nullptr) + std::int64_t{365} * 86400;
  EXPECT_EQ(Name(check("outdated.crl", kJanuary2020)), "DKV_OK");
  EXPECT_EQ(Name(check("fresh.crl", kJanuary2020)), "DKV_ERR_CRL_OUTDATED");
  EXPECT_EQ(Name(check("fresh.crl", inAYear)), "DKV_ERR_CRL_OUTDATED");
}

TEST(Crl, UnknownAlgorithmIsNamed) {
  std::string der = Pki().Read("fresh.der");
  const std::string known("\x2a\x86\x48\xce\x3d\x04\x03\x02");  // ecdsa-with-SHA256
  for (std::size_t at = 0; (at = der.find(known, at)) != std::string::npos; ++at) der[at + 7] = '\x7f';
  int rc = -1;
  const Crls crls = DecodeCrls(der, &rc);
  int reason = 0;
  rc = DkvLibCheckCertWithCrlArray(Lib(), Decode("signer").get(), Decode("inter").get(), crls.get(),
                                   DKV_NO_TIME, &reason);
  EXPECT_EQ(Name(rc), "DKV_ERR_ALG_NOT_SUPPORTED");
  EXPECT_NE(Info().find("1.2.840.10045.4.3.127"), std::string::npos) << Info();
}

TEST(Crl, FilesThatAreNone) {
  const std::string pem = Pki().Read("fresh.crl");
  const std::string der = Pki().Read("fresh.der");
  const std::string contents[] = {
      "",
      "text",
      Pki().Read("root.crt"),
      pem + pem.substr(0, pem.size() / 2),
      der + "x",
      der.substr(0, der.size() - 1),
      std::string(pem).replace(100, 4, "####"),
  };
  for (const std::string& content : contents) {
    int rc = -1;
    DecodeCrls(content, &rc);
    EXPECT_EQ(Name(rc), "DKV_ERR_ASN1") << content.size();
  }
}

// A name must not be able to write lines of its own into our output.
TEST(Certificate, ControlCharactersAreEscaped) {
  Pki().Run(
      "openssl req -new -x509 -config pki.cnf -key signer.key -days 1 -utf8 -subj "
      "\"$(printf '/CN=a\\nTOLVEN: b\\033[2J/O=M\\303\\274ller, Inc')\" -out evil.crt 2>&1");
  DkvParameter* entries = nullptr;
  ASSERT_EQ(DkvLibParseCertificate(Lib(), Decode("evil").get(), &entries), DKV_OK);
  EXPECT_STREQ(entries->entries[0].value, "O=M\xc3\xbcller\\, Inc,CN=a\\0ATOLVEN: b\\1B[2J");
  DkvLibFreeParameter(Lib(), entries);
}

TEST(Certificate, NothingElseIsTaken) {
  Pki().Run("openssl x509 -in root.crt -outform DER -out one.der");
  const std::string der = Pki().Read("one.der");
  for (const auto& [content, expected] :
       {std::pair{der + "x", DKV_ERR_TRAILING_DATA}, std::pair{der.substr(1), DKV_ERR_ASN1},
        std::pair{std::string(), DKV_ERR_ASN1}, std::pair{Pki().Read("root.crt"), DKV_ERR_ASN1}}) {
    const DkvOctetstring bytes = View(content);
    DkvCertificate* certificate = nullptr;
    EXPECT_EQ(DkvLibCertfromASN1(Lib(), &bytes, &certificate), expected);
    EXPECT_EQ(certificate, nullptr);
  }
}

}  // namespace
}  // namespace tolven::test

#include <openssl/cms.h>

#include <ctime>

#include "crypto_support.h"

namespace tolven::test {
namespace {

std::string Der(unsigned char tag, const std::string& content) {
  std::string length;
  for (std::size_t rest = content.size(); rest != 0; rest >>= 8U) {
    length.insert(length.begin(), static_cast<char>(rest & 0xFFU));
  }
  std::string head(1, static_cast<char>(tag));
  if (content.size() < 0x80) {
    head.push_back(static_cast<char>(content.size()));
  } else {
    head.push_back(static_cast<char>(0x80U | length.size()));
    head += length;
  }
  return head + content;
}

// DkvGetTimeStampReq, which must succeed.
std::string Request(const std::string& signature) {
  const DkvOctetstring der = View(signature);
  DkvOctetstring* request = nullptr;
  EXPECT_EQ(Name(DkvLibGetTimeStampReq(Lib(), &der, &request)), "DKV_OK");
  return Take(request);
}

struct Stamped {
  int rc = -1;
  std::string signature;
  bool described = false;  // whether there was an entry about the authority
  int tsaResult = -1;
  std::string tsaSubject;
  std::int64_t tsaTime = -1;
};

Stamped AddReply(const std::string& signature, const std::string& request, const std::string& reply,
                 const std::string& profile) {
  const DkvOctetstring der = View(signature);
  const DkvOctetstring asked = View(request);
  const DkvOctetstring answered = View(reply);
  const SignerEntry key = Entry(profile);
  DkvOctetstring* stamped = nullptr;
  SigRcpDkvInfoList* list = nullptr;
  Stamped result;
  result.rc = DkvLibAddTimeStampResp(Lib(), &der, &asked, &answered, key.get(), &stamped, &list);
  EXPECT_EQ(stamped != nullptr, result.rc == DKV_OK);
  result.signature = Take(stamped);
  if (list != nullptr) {
    result.described = true;
    result.tsaResult = list->entries[0]->result;
    result.tsaSubject = list->entries[0]->subject;
    result.tsaTime = list->entries[0]->signingTime;
  }
  DkvLibDELSigRcpDkvInfoList(Lib(), list);
  return result;
}

// A reply by "openssl ts -reply" with a key of the world.
std::string OpensslReply(const std::string& request, const std::string& tsa = "tsa") {
  Pki().Write("query", request);
  Pki().Run("openssl ts -reply -config pki.cnf -section tsa_reply -queryfile query -signer " + tsa +
            ".crt -inkey " + tsa + ".key -chain inter.crt -out reply 2>&1");
  return Pki().Read("reply");
}

// The statement inside a reply (TSTInfo in DER), and the time in it set to YYYYMMDDhhmmssZ.
std::string Statement(const std::string& reply) {
  Pki().Write("reply", reply);
  Pki().Run(
      "openssl ts -reply -in reply -token_out -out token 2>&1 && "
      "openssl cms -verify -noverify -inform DER -in token -out statement 2>&1");
  return Pki().Read("statement");
}

std::string AtTime(std::string statement, const std::string& time) {
  // GeneralizedTime of 15 characters: tag, length, text.
  const std::size_t at = statement.find("\x18\x0f");
  if (at == std::string::npos || time.size() != 15) throw std::runtime_error("no time in the statement");
  return statement.replace(at + 2, 15, time);
}

// A token over a statement, signed as "openssl cms" signs anything: also by those who must not.
std::string Token(const std::string& statement, const std::string& tsa,
                  const std::string& options = "-cades") {
  Pki().Write("statement", statement);
  Pki().Run(
      "openssl cms -sign -binary -nodetach -nosmimecap -outform DER -in statement -out token "
      "-econtent_type 1.2.840.113549.1.9.16.1.4 -certfile inter.crt -signer " +
      tsa + ".crt -inkey " + tsa + ".key " + options + " 2>&1");
  return Pki().Read("token");
}

// A reply with a status and that token.
std::string Reply(char status, const std::string& token) {
  return Der(0x30, Der(0x30, std::string("\x02\x01") + status) + token);
}

// Puts tokens into a signature without asking anybody.
std::string Embed(const std::string& signature, const std::string& token) {
  const auto* at = reinterpret_cast<const unsigned char*>(signature.data());
  CMS_ContentInfo* cms = d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(signature.size()));
  CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0);
  CMS_unsigned_add1_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE, token.data(),
                                static_cast<int>(token.size()));
  unsigned char* der = nullptr;
  const int length = i2d_CMS_ContentInfo(cms, &der);
  std::string result(reinterpret_cast<const char*>(der), static_cast<std::size_t>(length));
  OPENSSL_free(der);
  CMS_ContentInfo_free(cms);
  return result;
}

// A signature with a token of that time by the authority.
std::string StampAt(const std::string& signature, const std::string& time, const std::string& tsa) {
  return Embed(signature, Token(AtTime(Statement(OpensslReply(Request(signature))), time), tsa));
}

TEST(TimeStamp, IsEmbeddedAndVerifies) {
  const std::string signature = Sign(kContent, "signer.pse");
  const std::string request = Request(signature);
  const Stamped stamped = AddReply(signature, request, OpensslReply(request), "trust.pse");
  ASSERT_EQ(Name(stamped.rc), "DKV_OK");
  EXPECT_TRUE(stamped.described);
  EXPECT_EQ(stamped.tsaResult, DKV_OK);
  EXPECT_EQ(stamped.tsaSubject, "CN=tsa");
  EXPECT_NEAR(static_cast<double>(stamped.tsaTime), static_cast<double>(std::time(nullptr)), 60);

  for (const char* format : {"PKCS7", "PKCS7-TSTAMP"}) {
    const Verdict verdict = Verify(kContent, stamped.signature, "trust.pse", format);
    EXPECT_EQ(Name(verdict.Reason()), "DKV_OK");
    EXPECT_EQ(verdict.tokenPresent, 1);
    EXPECT_EQ(verdict.tokenResult, DKV_OK);
    EXPECT_EQ(verdict.tokenTime, stamped.tsaTime);
    EXPECT_NE(verdict.tsaId.find("CN=Test Intermediate"), std::string::npos);
    Pki().Run(
        "openssl x509 -in tsa.crt -outform DER -out tsa.der; openssl x509 -in inter.crt -outform DER "
        "-out inter.der");
    EXPECT_EQ(verdict.tsaCertificate, Pki().Read("tsa.der"));
    EXPECT_EQ(verdict.tsaIssuerCertificate, Pki().Read("inter.der"));
  }
  // The openssl command still takes the signature, and the token in it.
  Pki().Write("content", kContent);
  Pki().Write("ours", stamped.signature);
  Pki().Run(
      "openssl cms -verify -binary -inform DER -in ours -content content -CAfile root.crt -purpose any "
      "-out verified 2>&1");
  // A second token is not put in.
  EXPECT_NE(AddReply(stamped.signature, request, OpensslReply(request), "trust.pse").rc, DKV_OK);
}

struct ReplyRow {
  const char* what;
  std::string reply;
  const char* profile;
  int rc;
};

TEST(TimeStamp, RefusedReplies) {
  const std::string signature = Sign(kContent, "signer.pse");
  const std::string request = Request(signature);
  const std::string good = OpensslReply(request);
  const std::string statement = Statement(good);
  const std::string other = Sign("other content", "signer.pse");
  // Our nonce over somebody else's imprint.
  std::string swapped = statement;
  const std::size_t imprint = swapped.find(std::string("\x04\x20", 2));
  ASSERT_NE(imprint, std::string::npos);
  swapped[imprint + 5] = static_cast<char>(swapped[imprint + 5] ^ 1);

  const ReplyRow rows[] = {
      {"good", good, "trust.pse", DKV_OK},
      {"granted with modifications", Reply(1, Token(statement, "tsa")), "trust.pse", DKV_OK},
      {"rejected", Reply(2, ""), "trust.pse", DKV_ERR_TSA_STATUS},
      {"rejected, yet with a token", Reply(2, Token(statement, "tsa")), "trust.pse", DKV_ERR_ASN1},
      {"granted without a token", Reply(0, ""), "trust.pse", DKV_ERR_ASN1},
      {"cut", good.substr(0, good.size() / 2), "trust.pse", DKV_ERR_ASN1},
      {"something behind it", good + "x", "trust.pse", DKV_ERR_TRAILING_DATA},
      {"a page of text", "<html>not found</html>", "trust.pse", DKV_ERR_ASN1},
      {"nothing", "", "trust.pse", DKV_ERR_ASN1},
      {"of another request", OpensslReply(Request(signature)), "trust.pse", DKV_ERR_TSA_NONCE},
      {"of another signature", OpensslReply(Request(other)), "trust.pse", DKV_ERR_TSA_NONCE},
      {"about other data", Reply(0, Token(swapped, "tsa")), "trust.pse", DKV_ERR_TSA_IMPRINT},
      {"authority not trusted", OpensslReply(request, "stranger_tsa"), "trust.pse", DKV_ERR_TOKEN_TRUST},
      {"usage not critical", Reply(0, Token(statement, "tsa_uncritical")), "trust.pse", DKV_ERR_TSA_CERT},
      {"usage not alone", Reply(0, Token(statement, "tsa_mixed")), "trust.pse", DKV_ERR_TSA_CERT},
      {"a signer as authority", Reply(0, Token(statement, "signer")), "trust.pse", DKV_ERR_TSA_CERT},
      {"expired authority", Reply(0, Token(statement, "tsa_old")), "trust.pse", DKV_ERR_TOKEN_TRUST},
      {"SHA-1", Reply(0, Token(statement, "tsa", "-cades -md sha1")), "trust.pse", DKV_ERR_WEAK},
      {"no signing certificate", Reply(0, Token(statement, "tsa", "")), "trust.pse", DKV_ERR_TOKEN},
      {"from the future", Reply(0, Token(AtTime(statement, "20991231235959Z"), "tsa")), "trust.pse",
       DKV_ERR_TOKEN},
  };
  for (const ReplyRow& row : rows) {
    const Stamped stamped = AddReply(signature, request, row.reply, row.profile);
    EXPECT_EQ(Name(stamped.rc), Name(row.rc)) << row.what;
    if (stamped.described) {
      EXPECT_EQ(stamped.tsaResult, row.rc) << row.what;
    }
  }
}

struct TokenRow {
  const char* what;
  std::string signature;
  const char* profile;
  int reason;
  int tokenResult;
};

// Tokens that got into a signature by other ways: each is looked at, whatever the format says.
TEST(TimeStamp, TokensInSignatures) {
  const std::string signature = Sign(kContent, "signer.pse");
  const std::string statement = Statement(OpensslReply(Request(signature)));
  const std::string token = Token(statement, "tsa");
  const std::string foreign = Token(Statement(OpensslReply(Request(Sign("other", "signer.pse")))), "tsa");
  std::string damaged = token;
  damaged[damaged.size() - 5] = static_cast<char>(damaged[damaged.size() - 5] ^ 1);

  const TokenRow rows[] = {
      {"good", Embed(signature, token), "trust.pse", DKV_OK, DKV_OK},
      {"of another signature", Embed(signature, foreign), "trust.pse", DKV_ERR_TOKEN, DKV_ERR_TOKEN},
      {"damaged", Embed(signature, damaged), "trust.pse", DKV_ERR_TOKEN, DKV_ERR_TOKEN},
      {"two", Embed(Embed(signature, token), token), "trust.pse", DKV_ERR_TOKEN, DKV_ERR_TOKEN},
      {"another structure", Embed(signature, std::string("\x30\x00", 2)), "trust.pse", DKV_ERR_TOKEN,
       DKV_ERR_TOKEN},
      {"by an unknown authority", Embed(signature, Token(statement, "stranger_tsa")), "trust.pse",
       DKV_ERR_TOKEN_TRUST, DKV_ERR_TOKEN_TRUST},
      {"by a signer", Embed(signature, Token(statement, "signer")), "trust.pse", DKV_ERR_TSA_CERT,
       DKV_ERR_TSA_CERT},
      {"weak", Embed(signature, Token(statement, "tsa", "-cades -md sha1")), "trust.pse", DKV_ERR_TOKEN,
       DKV_ERR_WEAK},
      // Another profile may trust both: the signer comes first.
      {"signer not that key", Embed(signature, token), "other.pse", DKV_ERR_WRONG_SIGNER, DKV_OK},
  };
  for (const TokenRow& row : rows) {
    for (const char* format : {"PKCS7", "PKCS7-TSTAMP"}) {
      const Verdict verdict = Verify(kContent, row.signature, row.profile, format);
      EXPECT_EQ(Name(verdict.Reason()), Name(row.reason)) << row.what;
      EXPECT_EQ(Name(verdict.tokenResult), Name(row.tokenResult)) << row.what;
      if (verdict.tokenResult != DKV_OK) {
        EXPECT_EQ(verdict.tokenTime, DKV_NO_TIME) << row.what;
      }
    }
  }
}

struct TrustRow {
  const char* what;
  const char* file;  // QELtimestamp.pse in SECUDIR; null: none
  const char* profile;
  const char* tsa;
  int rc;
};

// Whoever issues signers does not by that say when they signed.
TEST(TimeStamp, TrustOfAuthorities) {
  const std::string signature = Sign(kContent, "signer.pse");
  const std::string request = Request(signature);
  const TrustRow rows[] = {
      {"its own trust file", "root.crt", "trust.pse", "tsa", DKV_OK},
      {"the profile does not count beside it", "foreign.crt", "tsa.pse", "tsa", DKV_ERR_TOKEN_TRUST},
      {"nor need it be there", "root.crt", "missing.pse", "tsa", DKV_OK},
      {"another root in it", "foreign.crt", "trust.pse", "stranger_tsa", DKV_OK},
      {"a root for everything in the profile", nullptr, "trust.pse", "tsa", DKV_ERR_TOKEN_TRUST},
      {"the authority itself", nullptr, "tsa.pse", "tsa", DKV_OK},
      {"a root for time stamps", nullptr, "tsa_root.pse", "its_tsa", DKV_OK},
      {"no trust at all", nullptr, "missing.pse", "tsa", DKV_ERR_NO_PSE},
      {"a damaged trust file", "damaged.pse", "tsa.pse", "tsa", DKV_ERR_PSE_FORMAT},
  };
  for (const TrustRow& row : rows) {
    const std::string reply = OpensslReply(request, row.tsa);
    std::vector<std::pair<std::string, std::string>> files;
    if (row.file != nullptr) files.emplace_back("QELtimestamp.pse", row.file);
    const OtherSecudir secudir(files);
    EXPECT_EQ(Name(AddReply(signature, request, reply, row.profile).rc), Name(row.rc)) << row.what;
  }
  // A root for time stamps does not vouch for signers.
  EXPECT_EQ(Name(Verify(kContent, OpensslSign(kContent, "its_signer"), "tsa_root.pse").Reason()),
            "DKV_ERR_EXT_KEY_USAGE");
}

// The chain is judged at the token's time, the authority's too: a delivery outlives its certificates.
TEST(TimeStamp, TimeDecides) {
  const OtherSecudir noTrustFile({});
  const std::string expired = OpensslSign(kContent, "expired");
  const std::string current = OpensslSign(kContent, "signer");
  EXPECT_EQ(Name(Verify(kContent, expired, "old.pse").Reason()), "DKV_ERR_EXPIRED");
  const Verdict verdict = Verify(kContent, StampAt(expired, "20180601120000Z", "tsa_old"), "old.pse");
  EXPECT_EQ(Name(verdict.Reason()), "DKV_OK");
  EXPECT_EQ(verdict.tokenTime, 1527854400);
  // A token from before the signer's or the authority's certificate, or from after.
  EXPECT_EQ(Name(Verify(kContent, StampAt(current, "20180601120000Z", "tsa_old"), "old.pse").Reason()),
            "DKV_ERR_NOT_YET_VALID");
  EXPECT_EQ(Name(Verify(kContent, StampAt(expired, "20140601120000Z", "tsa_old"), "old.pse").Reason()),
            "DKV_ERR_TOKEN_TRUST");
  EXPECT_EQ(Name(Verify(kContent, StampAt(expired, "20200601120000Z", "tsa_old"), "old.pse").Reason()),
            "DKV_ERR_TOKEN_TRUST");
}

}  // namespace
}  // namespace tolven::test

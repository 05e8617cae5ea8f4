#include "timestamp_support.h"

#include <openssl/cms.h>

#include <cctype>

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

}  // namespace

std::string Request(const std::string& signature) {
  const DkvOctetstring der = View(signature);
  DkvOctetstring* request = nullptr;
  EXPECT_EQ(Name(DkvLibGetTimeStampReq(Lib(), &der, &request)), "DKV_OK");
  return Take(request);
}

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

std::string OpensslReply(const std::string& request, const std::string& tsa) {
  Pki().Write("query", request);
  Pki().Run("openssl ts -reply -config pki.cnf -section tsa_reply -queryfile query -signer " + tsa +
            ".crt -inkey " + tsa + ".key -chain inter.crt -out reply 2>&1");
  return Pki().Read("reply");
}

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

std::string Token(const std::string& statement, const std::string& tsa, const std::string& options) {
  Pki().Write("statement", statement);
  Pki().Run(
      "openssl cms -sign -binary -nodetach -nosmimecap -outform DER -in statement -out token "
      "-econtent_type 1.2.840.113549.1.9.16.1.4 -certfile inter.crt -signer " +
      tsa + ".crt -inkey " + tsa + ".key " + options + " 2>&1");
  return Pki().Read("token");
}

std::string Reply(char status, const std::string& token) {
  return Der(0x30, Der(0x30, std::string("\x02\x01") + status) + token);
}

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

std::string StampAt(const std::string& signature, const std::string& time, const std::string& tsa) {
  return Embed(signature, Token(AtTime(Statement(OpensslReply(Request(signature))), time), tsa));
}

}  // namespace tolven::test

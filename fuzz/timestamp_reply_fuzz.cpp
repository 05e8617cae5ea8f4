// Replies of a time stamp authority to the world's request for its signature. What is accepted must stand in
// the signature as a good time stamp, and answers no other request.
#include "fuzz/crypto.h"

void tolven::fuzz::Run(Input input) {
  static const std::string content = World("content"), signature = World("signature");
  static const std::string request = World("request"), otherRequest = World("other request");
  static const auto trust = Profile("trust.pse");
  const DkvOctetstring der = View(signature), asked = View(request), other = View(otherRequest);
  const DkvOctetstring reply = View(input.Rest());
  DkvOctetstring* stamped = nullptr;
  SigRcpDkvInfoList* authority = nullptr;
  const int rc = DkvAddTimeStampResp(&der, &asked, &reply, trust.get(), &stamped, &authority);
  const ListPtr owner(authority);
  Require((rc == DKV_OK) == (stamped != nullptr));
  if (authority != nullptr) {
    const SigRcpDkvInfo& info = *authority->entries[0];
    for (const char* text : {info.id, info.subject, info.issuer}) RequirePlain(text);
  }
  if (stamped == nullptr) return;
  Require(Verify("PKCS7-TSTAMP", content, {stamped->octets, stamped->noctets}, *trust) == DKV_OK);
  DkvDELDkvOctetstring(stamped);
  Require(DkvAddTimeStampResp(&der, &other, &reply, trust.get(), &stamped, nullptr) != DKV_OK);
}

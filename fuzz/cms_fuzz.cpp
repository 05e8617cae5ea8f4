// Signatures (CMS objects) over the world's content. First byte: the format. Good ones are good for this
// content and this trust alone.
#include "fuzz/crypto.h"

void tolven::fuzz::Run(Input input) {
  static const std::string content = World("content");
  static const auto trust = Profile("trust.pse"), stranger = Profile("other.pse");
  const char* format = input.Byte() % 2 == 0 ? "PKCS7" : "PKCS7-TSTAMP";
  const Bytes signature = input.Rest();
  const int rc = Verify(format, content, signature, *trust);
  if (rc != DKV_OK && rc != DKV_ERR_SIGNER) return;
  Require(Verify(format, content + "\n", signature, *trust) != DKV_OK);
  if (rc == DKV_OK) Require(Verify(format, content, signature, *stranger) == DKV_ERR_SIGNER);

  const DkvOctetstring der = View(signature);
  DkvOctetstring* request = nullptr;
  Require(DkvGetTimeStampReq(&der, &request) == DKV_OK);
  DkvDELDkvOctetstring(request);
}

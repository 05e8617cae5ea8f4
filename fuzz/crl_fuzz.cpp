// Revocation lists, asked about a certificate that all good lists of the world revoke.
#include "certificate.h"
#include "fuzz/crypto.h"

namespace {

struct CertificateReleaser {
  void operator()(DkvCertificate* certificate) const { DkvFreeCertificate(certificate); }
};
using CertificatePtr = std::unique_ptr<DkvCertificate, CertificateReleaser>;

CertificatePtr Certificate(const std::string& name) {
  const std::string bytes = tolven::fuzz::World(name);
  const DkvOctetstring der = tolven::fuzz::View(bytes);
  DkvCertificate* certificate = nullptr;
  tolven::fuzz::Require(qelcr_init() == DKV_OK && DkvCertfromASN1(&der, &certificate) == DKV_OK);
  return CertificatePtr(certificate);
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  static const CertificatePtr revoked = Certificate("revoked.der"), issuer = Certificate("inter.der");
  const DkvOctetstring file = View(input.Rest());
  DkvCrlArray* lists = nullptr;
  const int rc = DkvDecodeCrlArray(&file, &lists);
  Require((rc == DKV_OK) == (lists != nullptr));
  if (lists == nullptr) return;
  int reason = 0;
  const int checked = DkvCheckCertWithCrlArray(revoked.get(), issuer.get(), lists, DKV_NO_TIME, &reason);
  Require(checked != DKV_OK && (checked == DKV_ERR_REVOKED) == (reason >= 0));
  DkvFreeCrlArray(lists);
}

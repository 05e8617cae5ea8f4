// Profiles. First byte: what they are read for, and the password.
#include "certificate.h"
#include "fuzz/crypto.h"
#include "pse.h"

namespace {

using namespace tolven::fuzz;
using namespace tolven::crypto;

void CheckCertificate(X509* certificate) {
  RequirePlain(SubjectText(certificate));
  RequirePlain(IssuerText(certificate));
  RequirePlain(IdText(certificate));
  const std::vector<std::uint8_t> der = ToDer(certificate, i2d_X509);
  const DkvOctetstring octets = View(Bytes(der));
  DkvCertificate* decoded = nullptr;
  if (DkvCertfromASN1(&octets, &decoded) != DKV_OK) return;
  DkvParameter* texts = nullptr;
  if (DkvParseCertificate(decoded, &texts) == DKV_OK) {
    for (std::size_t i = 0; i < texts->count; ++i) RequirePlain(texts->entries[i].value);
    DkvFreeParameter(texts);
  }
  DkvFreeCertificate(decoded);
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  static const int started = qelcr_init();
  Require(started == DKV_OK);
  const unsigned choice = input.Byte();
  constexpr PseUse kUses[] = {PseUse::kTrust, PseUse::kSign, PseUse::kKeyIfPresent};
  const PseUse use = kUses[choice % std::size(kUses)];
  constexpr const char* kPasswords[] = {nullptr, "", "secret"};
  const MemoryFile file(input.Rest());
  try {
    const Pse pse = LoadPse(file.Name(), kPasswords[choice / 4 % std::size(kPasswords)], use);
    Require(pse.own || !pse.further.empty());
    Require(use != PseUse::kSign || (pse.key && pse.own));
    if (pse.key && pse.own) Require(X509_check_private_key(pse.own.get(), pse.key.get()) == 1);
    if (pse.own) CheckCertificate(pse.own.get());
    for (const CertPtr& certificate : pse.further) CheckCertificate(certificate.get());
  } catch (const Failure& failure) {
    const int rc = failure.rc();
    Require((rc >= DKV_ERR_NO_PSE && rc <= DKV_ERR_PSE_NO_CERT) || rc == DKV_ERR_ALG_NOT_SUPPORTED);
  }
}

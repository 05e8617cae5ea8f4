// Step 8 of a verification: is a certificate of the signature on its issuer's revocation list?

#include "signing/manifest/dkv_objects.h"
#include "signing/manifest/manifest_errors.h"
#include "signing/manifest/manifest_verify.h"

namespace tolven {
namespace {

// Where a user gets a list from: only the issuer publishes it, so the texts name no address.
constexpr char kCrlLocation[] = "the issuer of the certificate (its CRL distribution point)";

// The texts for one of the two certificates.
struct Texts {
  const char* decode;
  const char* call;
  const char* revoked;
};
constexpr Texts kSignerTexts = {"Error in Signer Certificate Decode",
                                "Error in Signer DkvCheckCertWithCrlArray", "Signer Certificate revoked"};
constexpr Texts kTsaTexts = {"Error in TSA Certificate Decoder", "Error in TSA DkvCheckCertWithCrlArray",
                             "Timestamp Certificate revoked"};

int ReportCheck(ManifestContext& context, const Texts& texts, int rc, int reason,
                const std::string& info = {}) {
  context.dkvErrorCode = rc;
  switch (rc) {
    case DKV_OK:
      return SMF_OK;
    case DKV_ERR_REVOKED:
      Fail(context, SMF_ECRL_REVOKED, texts.revoked);
      return Fail(context, SMF_ECRL_REVOKED, FormatText("Revocation Reason Code = %d", reason));
    case DKV_ERR_CRL_OUTDATED:
      return AddError(context, SMF_ECRL_OUTDATED, MANIFEST_CATEGORY_WARNING,
                      std::string("CRL outdated. Download and use CRL from ") + kCrlLocation);
    case DKV_ERR_CRL_MISSING:
      return AddError(context, SMF_ECRL_MISSING, MANIFEST_CATEGORY_WARNING,
                      std::string("CRL missing. Download and use CRL from ") + kCrlLocation);
    default:
      Fail(context, SMF_ECRL, texts.call);
      return Fail(context, SMF_ECRL, DkvReason(rc, info));
  }
}

// A list must be current now, also for a signature with an older time stamp: an old list knows of nothing
// since.
int CheckCertificate(ManifestContext& context, const Texts& texts,
                     const std::vector<std::uint8_t>& certificateDer,
                     const std::vector<std::uint8_t>& issuerDer, const DkvCrlArray* crls) {
  DkvPtr<DkvCertificate> certificate;
  DkvPtr<DkvCertificate> issuer;
  const DkvOctetstring der = DkvView(certificateDer);
  int rc = DkvCall(context.library, certificate, DkvLibCertfromASN1, &der);
  if (rc == DKV_OK && !issuerDer.empty()) {
    const DkvOctetstring issuerView = DkvView(issuerDer);
    rc = DkvCall(context.library, issuer, DkvLibCertfromASN1, &issuerView);
  }
  if (rc != DKV_OK) {
    context.dkvErrorCode = rc;
    return Fail(context, SMF_ECRL, texts.decode);
  }
  int reason = -1;
  const DkvLock lock;
  rc = DkvLibCheckCertWithCrlArray(context.library, certificate.get(), issuer.get(), crls, DKV_NO_TIME,
                                   &reason);
  return ReportCheck(context, texts, rc, reason, DkvInfo(context.library));
}

}  // namespace

int CheckCrl(ManifestContext& context, std::span<const std::uint8_t> crlFile) {
  if (crlFile.empty()) return ReportCheck(context, kSignerTexts, DKV_ERR_CRL_MISSING, -1);
  DkvPtr<DkvCrlArray> crls;
  const DkvOctetstring view = DkvView(crlFile);
  const int rc = DkvCall(context.library, crls, DkvLibDecodeCrlArray, &view);
  if (rc != DKV_OK || crls == nullptr) {
    context.dkvErrorCode = rc;
    return Fail(context, SMF_ECRL, "Error in CRL Decode");
  }
  const int result = CheckCertificate(context, kSignerTexts, context.signerCertificate,
                                      context.signerIssuerCertificate, crls.get());
  if (result != SMF_OK || context.tsaId.empty()) return result;
  return CheckCertificate(context, kTsaTexts, context.tsaCertificate, context.tsaIssuerCertificate,
                          crls.get());
}

}  // namespace tolven

#include "signing/manifest/signer_trust.h"

#include <ctime>

#include "report/show_text.h"
#include "signing/crypto/trace.h"
#include "signing/manifest/dkv_calls.h"

namespace tolven {

// --- whose signature it is ---

void NoteExternalKey(ManifestContext& context) {
  context.signerName = kSignerExternal;
  AddError(context, SMF_ESIGNATURE_EXTERNAL, MANIFEST_CATEGORY_WARNING,
           "The signature was verified with an external key");
}

namespace {

// One call of DkvVerify with one key.
struct Attempt {
  int rc = DKV_ERR_GENERAL;
  DkvPtr<SigRcpDkvInfoList> signers;
  std::string info;  // what the library adds

  const SigRcpDkvInfo* Signer() const {
    return signers != nullptr && signers->count != 0 ? signers->entries[0] : nullptr;
  }
  bool Succeeded() const { return rc == DKV_OK; }
  // The signature is right, but nothing leads from its signer to that key: another key may be tried.
  bool IsOtherSigner() const {
    return rc == DKV_ERR_SIGNER && Signer() != nullptr && Signer()->result == DKV_ERR_WRONG_SIGNER;
  }
  bool KeyIsMissing() const { return IsOtherSigner() && Signer()->detail == DKV_ERR_NO_PSE; }
  // The code that says most about the failure.
  int Reason() const { return rc == DKV_ERR_SIGNER && Signer() != nullptr ? Signer()->result : rc; }
};

class SignatureCheck {
 public:
  SignatureCheck(ManifestContext& context, std::span<const std::uint8_t> signature)
      : m_context(context), m_signature(signature) {}

  int Run(const TrustedKey& key);

 private:
  bool EncodeContent();
  Attempt Try(const std::string& profile, const char* password);
  int TryExternal(const TrustedKey& key);
  int TryBuiltIn();
  int Refuse(const Attempt& attempt);
  int Accept(const Attempt& attempt);

  ManifestContext& m_context;
  const std::span<const std::uint8_t> m_signature;
  DkvPtr<DkvOctetstring> m_content;
};

bool SignatureCheck::EncodeContent() {
  const DkvOctetstring bytes = DkvView(m_context.SignedText());
  m_context.dkvErrorCode =
      DkvCall(m_context.library, m_content, DkvLibEncode, m_context.signatureFormat.c_str(), &bytes);
  ManifestTrace("Encoded content byte buffer, call now DkvVerify \n");
  return m_context.dkvErrorCode == DKV_OK && m_content != nullptr;
}

Attempt SignatureCheck::Try(const std::string& profile, const char* password) {
  Attempt attempt;
  const DkvPtr<SigRcpDkvInfo> key = DkvProfile(m_context.library, profile, password);
  const DkvOctetstring signature = DkvView(m_signature);
  const DkvLock lock;
  attempt.rc = DkvCall(m_context.library, attempt.signers, DkvLibVerify, m_context.signatureFormat.c_str(),
                       static_cast<const DkvOctetstring*>(m_content.get()), &signature,
                       static_cast<const SigRcpDkvInfo*>(key.get()));
  attempt.info = DkvInfo(m_context.library);
  return attempt;
}

int SignatureCheck::Run(const TrustedKey& key) {
  if (!EncodeContent()) return Fail(m_context, SMF_ESIGNATURE, "Signature invalid\n");
  return IsGiven(key.name) ? TryExternal(key) : TryBuiltIn();
}

int SignatureCheck::TryExternal(const TrustedKey& key) {
  const Attempt attempt = Try(IsGiven(key.pse) ? key.pse : key.name, key.password);
  if (key.isOptional && attempt.IsOtherSigner()) return TryBuiltIn();
  if (key.isOptional) NoteExternalKey(m_context);
  return attempt.Succeeded() ? Accept(attempt) : Refuse(attempt);
}

int SignatureCheck::TryBuiltIn() {
  const Attempt productive = Try(kProductiveKey, nullptr);
  if (productive.Succeeded()) {
    m_context.signerName = kSignerProductive;
    return Accept(productive);
  }
  if (!productive.IsOtherSigner()) return Refuse(productive);

  Attempt validation = Try(kValidationKey, nullptr);
  if (validation.Succeeded()) {
    m_context.signerName = kSignerValidation;
    AddError(
        m_context, SMF_ESIGNATURE_VALIDATION, MANIFEST_CATEGORY_LOGGABLE_WARNING,
        "The signature was verified successfully, but it was used the QEL validation (not productive) key");
    return Accept(validation);
  }
  if (productive.KeyIsMissing() && validation.KeyIsMissing()) {
    Fail(m_context, SMF_ESIGNATURE,
         "There is no trusted certificate: the file QELverify.pse is missing in the directory that the "
         "environment "
         "variable SECUDIR names. The command tolven-pse makes it from the signer's certificate. " +
             productive.info);
  }
  // That there is no test key is nobody's trouble.
  if (validation.KeyIsMissing()) validation.info.clear();
  return Refuse(validation);
}

int SignatureCheck::Refuse(const Attempt& attempt) {
  m_context.dkvErrorCode = attempt.rc;
  ManifestTrace("DkvVerify failed with %d (%s)\n", attempt.rc, DkvReason(attempt.Reason()).c_str());
  Fail(m_context, SMF_ESIGNATURE, ShowText(DkvReason(attempt.Reason(), attempt.info)));
  return Fail(m_context, SMF_ESIGNATURE, "Signature invalid\n");
}

std::string TimeText(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  if (seconds == DKV_NO_TIME || gmtime_r(&time, &parts) == nullptr) return {};
  char text[64];
  return std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts) == 0 ? std::string()
                                                                                : std::string(text);
}

const char* FindEntry(const DkvParameter& parameter, std::string_view name) {
  for (std::size_t i = 0; i < parameter.count; ++i) {
    const DkvParameterEntry& entry = parameter.entries[i];
    if (entry.name != nullptr && entry.name == name) return entry.value;
  }
  return nullptr;
}

// Subject and issuer as the certificate itself says them.
int ReadNames(ManifestContext& context) {
  const DkvOctetstring der = DkvView(context.signerCertificate);
  DkvPtr<DkvCertificate> certificate;
  int rc = DkvCall(context.library, certificate, DkvLibCertfromASN1, &der);
  if (rc != DKV_OK) {
    context.dkvErrorCode = rc;
    return Fail(context, SMF_ESIGNATURE, "DkvCertfromASN1 failed");
  }
  DkvPtr<DkvParameter> entries;
  rc = DkvCall(context.library, entries, DkvLibParseCertificate,
               static_cast<const DkvCertificate*>(certificate.get()));
  if (rc != DKV_OK || entries == nullptr) {
    context.dkvErrorCode = rc;
    return Fail(context, SMF_ESIGNATURE, "DkvParseCertificate failed");
  }
  context.subject = DkvText(FindEntry(*entries, "SUBJECT"));
  context.issuer = DkvText(FindEntry(*entries, "ISSUER"));
  return SMF_OK;
}

// Keeps what the signature says about signer and time stamp.
int SignatureCheck::Accept(const Attempt& attempt) {
  m_context.dkvErrorCode = attempt.rc;
  if (attempt.signers == nullptr) return Fail(m_context, SMF_ESIGNATURE, "Invalid (null) signer list.\n");
  const SigRcpDkvInfo* signer = attempt.Signer();
  if (signer == nullptr || signer->result != DKV_OK) {
    return Fail(m_context, SMF_ESIGNATURE, "No signer information available.\n");
  }
  m_context.signerId = DkvText(signer->id);
  m_context.signingTime = TimeText(signer->signingTime);
  m_context.signerCertificate = DkvBytes(signer->certificate);
  m_context.signerIssuerCertificate = DkvBytes(signer->issuerCertificate);
  if (signer->tokenPresent != 0 && signer->tokenResult == DKV_OK) {
    m_context.tsaId = DkvText(signer->tsaId);
    m_context.tsaCertificate = DkvBytes(signer->tsaCertificate);
    m_context.tsaIssuerCertificate = DkvBytes(signer->tsaIssuerCertificate);
  } else {
    ManifestTrace("No TSA singing information available.\n");
    // The library refuses this itself; whether a stamp was promised does not hang on one check.
    if (m_context.signatureFormat == kFormatPkcs7Tstamp) {
      return Fail(m_context, SMF_ESIGNATURE, "No TSA singing information available.\n");
    }
  }
  return ReadNames(m_context);
}

}  // namespace

int CheckSigner(ManifestContext& context, const TrustedKey& key, std::span<const std::uint8_t> signature) {
  return SignatureCheck(context, signature).Run(key);
}

// --- is a certificate of the signature on its issuer's revocation list? ---

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

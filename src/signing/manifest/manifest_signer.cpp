// Steps 6 and 7 of a verification: whose signature it is.

#include <ctime>

#include "report/show_text.h"
#include "signing/crypto/trace.h"
#include "signing/manifest/dkv_objects.h"
#include "signing/manifest/manifest_errors.h"
#include "signing/manifest/manifest_verify.h"

namespace tolven {
namespace {

constexpr char kProductiveKey[] = "QELverify";
constexpr char kValidationKey[] = "QELvalidation";

bool IsGiven(const char* text) {
  return text != nullptr && *text != '\0';
}

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

  int Run(const VerifyRequest& request);

 private:
  bool EncodeContent();
  Attempt Try(const std::string& profile, const char* password);
  int TryExternal(const VerifyRequest& request);
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

int SignatureCheck::Run(const VerifyRequest& request) {
  if (!EncodeContent()) return Fail(m_context, SMF_ESIGNATURE, "Signature invalid\n");
  return IsGiven(request.verifyKey) ? TryExternal(request) : TryBuiltIn();
}

int SignatureCheck::TryExternal(const VerifyRequest& request) {
  const Attempt attempt = Try(IsGiven(request.pse) ? request.pse : request.verifyKey, request.password);
  const bool optional = (request.flags & kManifestKeyIsOptional) != 0;
  if (optional && attempt.IsOtherSigner()) return TryBuiltIn();
  if (optional) NoteExternalKey(m_context);
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

int VerifySignature(ManifestContext& context, const VerifyRequest& request,
                    std::span<const std::uint8_t> signature) {
  return SignatureCheck(context, signature).Run(request);
}

}  // namespace tolven

// What a verification found out about the signature.

#include "signing/manifest/manifest_context.h"
#include "signing/manifest/manifest_errors.h"

namespace tolven {
namespace {

int CopyName(ManifestContext& context, const std::string& name, std::string* copy, const char* missing) {
  copy->clear();
  return Guarded(context, [&]() -> int {
    if (name.empty()) return AddError(context, SMF_ERROR, MANIFEST_CATEGORY_NONE, missing);
    *copy = name;
    return SMF_OK;
  });
}

}  // namespace

const char* ManifestSignatureName(const ManifestContext* context) {
  return ContextOf(context).signerName.c_str();
}

int ManifestSignatureSubject(ManifestContext* context, std::string* subject) {
  ManifestContext& c = ContextOf(context);
  return CopyName(c, c.subject, subject, "No subject name available, because an error occurred before");
}

int ManifestSignatureIssuer(ManifestContext* context, std::string* issuer) {
  ManifestContext& c = ContextOf(context);
  return CopyName(c, c.issuer, issuer, "No issuer name available, because an error occurred before");
}

const std::string& ManifestSignatureAlgorithm(const ManifestContext* context) {
  return ContextOf(context).signatureAlgorithm;
}

const std::string& ManifestSignatureFormat(const ManifestContext* context) {
  return ContextOf(context).signatureFormat;
}

const char* ManifestFileHashAlgorithm(const ManifestContext* context) {
  const char* name = haGetAlgorithmName(ContextOf(context).hashAlgorithm);
  return name == nullptr ? "" : name;
}

const std::string& ManifestSigningWarning(const ManifestContext* context) {
  return ContextOf(context).signingWarning;
}

const std::string& ManifestSigningTime(const ManifestContext* context) {
  return ContextOf(context).signingTime;
}

const std::string& ManifestTsaName(const ManifestContext* context) {
  return ContextOf(context).tsaId;
}

}  // namespace tolven

#include "signing/manifest/manifest_context.h"

#include <algorithm>

#include "report/show_text.h"

namespace tolven {
namespace {

constexpr std::size_t kFirstBufferSize = 65535;

int CopyName(ManifestContext& context, const std::string& name, std::string* copy, const char* missing) {
  copy->clear();
  return Guarded(context, [&]() -> int {
    if (name.empty()) return AddError(context, SMF_ERROR, MANIFEST_CATEGORY_NONE, missing);
    *copy = name;
    return SMF_OK;
  });
}

}  // namespace

ManifestContext s_Manifest;

ManifestContext* ManifestNewContext() {
  return std::make_unique<ManifestContext>().release();
}

void ManifestFreeContext(ManifestContext* context) {
  std::unique_ptr<ManifestContext> owner(context);
}

void ManifestClose(ManifestContext* context) {
  ContextOf(context) = ManifestContext{};
}

void ResetDocument(ManifestContext& context) {
  ManifestContext fresh;
  fresh.library = context.library;
  fresh.hashAlgorithm = context.hashAlgorithm;
  fresh.digestLength = context.digestLength;
  fresh.signatureFormat = std::move(context.signatureFormat);
  fresh.signatureAlgorithm = std::move(context.signatureAlgorithm);
  context = std::move(fresh);
}

bool ExtendManifestBuffer(ManifestContext& context, std::size_t more) {
  std::string& text = context.text;
  if (more <= text.capacity() - text.size()) return true;
  if (more > text.max_size() / 2 - text.size()) return false;
  try {
    text.reserve(std::max({kFirstBufferSize, 2 * text.capacity(), text.size() + more}));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

int BeginDigest(ManifestContext& context) {
  const int result = haInit(&context.digest, context.hashAlgorithm);
  if (result == HA_OK) return SMF_OK;
  return Fail(context, SMF_EDIGESTLIB,
              FormatText("Error in haInit %d, Hash AlgId %d", result, context.hashAlgorithm));
}

std::string_view ManifestGetText(const ManifestContext* context) {
  return ContextOf(context).text;
}

std::string_view ManifestGetSignedText(const ManifestContext* context) {
  return ContextOf(context).SignedText();
}

int AddError(ManifestContext& context, int code, int category, std::string_view text) {
  if (code != SMF_OK && (context.errorCode == SMF_OK || category != MANIFEST_CATEGORY_NONE))
    context.errorCode = code;
  context.errorCategory = std::max(context.errorCategory, category);
  try {
    if (context.errorText.empty()) {
      context.errorText = text;
    } else {
      context.errorText.append("\n").append(text);
    }
  } catch (const std::bad_alloc&) {
    context.textLost = true;  // of a failure the numbers say enough
  }
  return code;
}

int Fail(ManifestContext& context, int code, std::string_view text) {
  return AddError(context, code, MANIFEST_CATEGORY_ERROR, text);
}

std::string NameText(std::string_view before, std::string_view name, std::string_view after) {
  std::string text;
  text.reserve(before.size() + name.size() + after.size());
  return text.append(before).append(ShowText(name)).append(after);
}

// --- errors, as the flat interface tells them ---

const char* ManifestErrorName(int code) {
  return SmfCodeName(code);
}

std::string ManifestDkvErrorName(int code) {
  return DkvCodeName(code);
}

int ManifestLastErrorCode(const ManifestContext* context) {
  return ContextOf(context).errorCode;
}

int ManifestLastDkvErrorCode(const ManifestContext* context) {
  return ContextOf(context).dkvErrorCode;
}

const std::string& ManifestGetLastError(const ManifestContext* context) {
  return ContextOf(context).errorText;
}

int ManifestGetErrorCategory(const ManifestContext* context) {
  const ManifestContext& c = ContextOf(context);
  return c.errorText.empty() ? MANIFEST_CATEGORY_NONE : c.errorCategory;
}

const char* ManifestGetErrorCategoryName(const ManifestContext* context) {
  switch (ManifestGetErrorCategory(context)) {
    case MANIFEST_CATEGORY_LOGGABLE_WARNING:
      return "LOGGABLE_WARNING";
    case MANIFEST_CATEGORY_WARNING:
      return "WARNING";
    case MANIFEST_CATEGORY_ERROR:
      return "ERROR";
    default:
      return "";
  }
}

// --- what a verification found out about the signature ---

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

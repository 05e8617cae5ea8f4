#include "signing/manifest/manifest_verify.h"

#include "signing/hash/codec.h"
#include "signing/manifest/manifest_errors.h"
#include "signing/manifest/manifest_format.h"
#include "signing/manifest/manifest_parser.h"

namespace tolven {
namespace {

constexpr unsigned kKnownFlags = kManifestRequireCrl | kManifestKeyIsOptional;

int TakeText(ManifestContext& context, const VerifyRequest& request) {
  if (request.text == nullptr || request.length == 0) {
    return Fail(context, SMF_EINVARG, "No signed manifest file passed");
  }
  try {
    std::string copy(static_cast<const char*>(request.text),
                     request.length);  // may be this context's own text
    ResetDocument(context);
    context.text = std::move(copy);
  } catch (const std::bad_alloc&) {
    return Fail(context, SMF_ENOMEM, "Error in allocation memory for manifest file");
  }
  return SMF_OK;
}

// The markers are not searched for: the block is the text between the 26 bytes and the 24 bytes that they
// take.
int DecodeSignature(ManifestContext& context, std::vector<std::uint8_t>& signature) {
  const std::string_view block =
      std::string_view(context.text).substr(context.headerLength + context.bodyLength);
  int result = HA_CODEC_ETEXT;
  if (block.size() > kSignatureFrame) {
    const std::string_view base64 = block.substr(kSignatureBegin.size(), block.size() - kSignatureFrame);
    signature.resize(base64.size() / 4 * 3 + 3);
    std::size_t written = 0;
    result = haDecBase64SB(base64.data(), base64.size(), kSignatureBase64Mode, kSignatureLine, "\n",
                           signature.data(), signature.size(), &written);
    signature.resize(written);
  }
  if (result == HA_CODEC_OK) return SMF_OK;
  return Fail(context, SMF_EDECODE, "Error in Base64 Decoder");
}

int CheckFormat(ManifestContext& context) {
  if (context.signatureFormat == kFormatPkcs7Tstamp) return SMF_OK;
  if (context.signatureFormat == kFormatPkcs7) {
    AddError(context, SMF_OK, MANIFEST_CATEGORY_LOGGABLE_WARNING, "The signature was without time stamp");
    return SMF_OK;
  }
  return AddError(context, SMF_ESIGNATURE, MANIFEST_CATEGORY_WARNING, "The signature format is invalid");
}

// Steps 2 to 7: everything that makes the text worth trusting.
int CheckDocument(ManifestContext& context, const VerifyRequest& request) {
  if (ParseIntoRecords(context) != SMF_OK) return Fail(context, SMF_EPARSE, "Error in manifest parser");
  std::vector<std::uint8_t> signature;
  if (const int result = DecodeSignature(context, signature); result != SMF_OK) return result;

  context.signerName = "Unknown signer";
  const bool external = request.verifyKey != nullptr && *request.verifyKey != '\0';
  if (external && (request.flags & kManifestKeyIsOptional) == 0) NoteExternalKey(context);
  if (const int result = CheckFormat(context); result != SMF_OK) return result;
  if (context.library == nullptr) return Fail(context, SMF_EINIT, "Manifest context is not initialized");
  return VerifySignature(context, request, signature);
}

int ResultOfSigner(const ManifestContext& context) {
  if (context.signerName == kSignerExternal) return SMF_ESIGNATURE_EXTERNAL;
  if (context.signerName == kSignerValidation) return SMF_ESIGNATURE_VALIDATION;
  return context.signerName == kSignerProductive ? SMF_OK : SMF_ESIGNATURE_UNKNOWN;
}

}  // namespace

void NoteExternalKey(ManifestContext& context) {
  context.signerName = kSignerExternal;
  AddError(context, SMF_ESIGNATURE_EXTERNAL, MANIFEST_CATEGORY_WARNING,
           "The signature was verified with an external key");
}

int ManifestVerifyInfo(ManifestContext& context, const VerifyRequest& request) {
  if (const int result = TakeText(context, request); result != SMF_OK) return result;
  if ((request.flags & ~kKnownFlags) != 0)
    return Fail(context, SMF_EINVARG, "Invalid verification flags passed");
  if (const int result = CheckDocument(context, request); result != SMF_OK) {
    context.files.clear();
    context.index.Invalidate();
    return result;
  }
  if (!request.returnNames) {
    context.subject.clear();
    context.issuer.clear();
  }
  if (!request.crl.empty() || (request.flags & kManifestRequireCrl) != 0) {
    if (const int result = CheckCrl(context, request.crl); result != SMF_OK) return result;
  }
  if (request.verifyFiles) {
    if (const int result = CheckLocalFiles(context); result != SMF_OK) return result;
  }
  return ResultOfSigner(context);
}

int ManifestVerifyEx(ManifestContext* context, const void* text, std::size_t length, const char* verifyKey,
                     const char* pse, const char* password, std::span<const std::uint8_t> crl, unsigned flags,
                     bool verifyFiles, bool returnNames) {
  ManifestContext& c = ContextOf(context);
  const VerifyRequest request{text, length, verifyKey, pse, password, crl, flags, verifyFiles, returnNames};
  return Guarded(c, [&] { return ManifestVerifyInfo(c, request); });
}

int ManifestVerify(ManifestContext* context, const void* text, std::size_t length, const char* verifyKey,
                   const char* pse, const char* password, std::span<const std::uint8_t> crl, unsigned flags) {
  return ManifestVerifyEx(context, text, length, verifyKey, pse, password, crl, flags, false, false);
}

int ManifestVerifyFiles(ManifestContext* context, const void* text, std::size_t length, const char* verifyKey,
                        const char* pse, const char* password, std::span<const std::uint8_t> crl,
                        unsigned flags) {
  return ManifestVerifyEx(context, text, length, verifyKey, pse, password, crl, flags, true, false);
}

}  // namespace tolven

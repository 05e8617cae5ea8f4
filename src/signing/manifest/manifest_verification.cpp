// Verification of manifest.h: a signed document, its signer, and the listed files on this machine.

#include <algorithm>
#include <cstring>

#include "fileio/local_file.h"
#include "signing/manifest/manifest_document.h"
#include "signing/manifest/signer_trust.h"

namespace tolven {
namespace {

constexpr unsigned kKnownFlags = kManifestRequireCrl | kManifestKeyIsOptional;
constexpr std::size_t kReadSize = 65536;

// What a verification is asked to do; see ManifestVerify for the members.
struct VerifyRequest {
  const void* text;
  std::size_t length;
  const char* verifyKey;
  const char* pse;
  const char* password;
  std::span<const std::uint8_t> crl;
  unsigned flags;
  bool verifyFiles;
  bool returnNames;
};

int TakeText(ManifestContext& context, const VerifyRequest& request) {
  if (request.text == nullptr || request.length == 0) {
    return Fail(context, SMF_EINVARG, "No signed manifest file passed");
  }
  const bool own = request.text == context.text.data() && request.length == context.text.size();
  try {
    std::string text =
        own ? std::move(context.text) : std::string(static_cast<const char*>(request.text), request.length);
    ManifestSetText(&context, std::move(text));
  } catch (const std::bad_alloc&) {
    return Fail(context, SMF_ENOMEM, "Error in allocation memory for manifest file");
  }
  return SMF_OK;
}

int CheckFormat(ManifestContext& context) {
  if (context.signatureFormat == kFormatPkcs7Tstamp) return SMF_OK;
  if (context.signatureFormat == kFormatPkcs7) {
    AddError(context, SMF_OK, MANIFEST_CATEGORY_LOGGABLE_WARNING, "The signature was without time stamp");
    return SMF_OK;
  }
  return AddError(context, SMF_ESIGNATURE, MANIFEST_CATEGORY_WARNING, "The signature format is invalid");
}

// Everything that makes the text worth trusting. No memory is spent on its lines before it is trusted.
int CheckDocument(ManifestContext& context, const VerifyRequest& request) {
  std::size_t count = 0;
  if (CheckManifest(context, count) != SMF_OK) return Fail(context, SMF_EPARSE, "Error in manifest parser");
  std::vector<std::uint8_t> signature;
  if (const int result = ReadSignatureBlock(context, signature); result != SMF_OK) return result;

  context.signerName = "Unknown signer";
  const TrustedKey key{request.verifyKey, request.pse, request.password,
                       (request.flags & kManifestKeyIsOptional) != 0};
  if (IsGiven(key.name) && !key.isOptional) NoteExternalKey(context);
  if (const int result = CheckFormat(context); result != SMF_OK) return result;
  if (context.library == nullptr) return Fail(context, SMF_EINIT, "Manifest context is not initialized");
  const int result = CheckSigner(context, key, signature);
  return result == SMF_OK ? CollectRecords(context, count) : result;
}

int ResultOfSigner(const ManifestContext& context) {
  if (context.signerName == kSignerExternal) return SMF_ESIGNATURE_EXTERNAL;
  if (context.signerName == kSignerValidation) return SMF_ESIGNATURE_VALIDATION;
  return context.signerName == kSignerProductive ? SMF_OK : SMF_ESIGNATURE_UNKNOWN;
}

int NotReadable(ManifestContext& context, std::string_view name, int error) {
  const std::string why = FormatText("< was not found. System error code %d. %s", error, strerror(error));
  return Fail(context, SMF_EFILENOTFOUND, NameText("Local File >", name, why));
}

int HashFile(ManifestContext& context, std::string_view name, std::span<std::uint8_t> buffer) {
  const LocalFile file(std::string(name), LocalFile::Links::kRefuse);
  if (!file.IsOpen()) return NotReadable(context, name, file.Error());
  if (const int result = BeginDigest(context); result != SMF_OK) return result;
  for (std::size_t done = buffer.size(); done == buffer.size();) {
    if (const int error = file.Read(buffer, done); error != 0) return NotReadable(context, name, error);
    if (const int result = haUpdate(&context.digest, buffer.data(), done); result != HA_OK) {
      return Fail(context, SMF_EDIGESTLIB, FormatText("Error in haUpdate %d", result));
    }
  }
  const int result = haFinal(&context.digest);
  return result == HA_OK ? SMF_OK : Fail(context, SMF_EDIGESTLIB, FormatText("Error in haFinal %d", result));
}

// The listed files as they lie on this machine.
int CheckLocalFiles(ManifestContext& context) {
  std::vector<std::uint8_t> buffer(kReadSize);
  return ParseManifest(context, [&](std::string_view name, std::span<const std::uint8_t> digest) -> int {
    if (const int result = HashFile(context, name, buffer); result != SMF_OK) return result;
    const std::span<const std::uint8_t> found(context.digest.digest.data(), context.digest.digestLength);
    if (std::equal(digest.begin(), digest.end(), found.begin(), found.end())) return SMF_OK;
    return Fail(context, SMF_EDIGEST, NameText("Local File >", name, "< digest is different to manifest"));
  });
}

// All of it, in order; each step stops at the first error. SMF_OK, 24 and 25 are success.
int ManifestVerifyInfo(ManifestContext& context, const VerifyRequest& request) {
  if (const int result = TakeText(context, request); result != SMF_OK) return result;
  if ((request.flags & ~kKnownFlags) != 0)
    return Fail(context, SMF_EINVARG, "Invalid verification flags passed");
  if (const int result = CheckDocument(context, request); result != SMF_OK) {
    context.ForgetFiles();
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
  // A success whose warnings are not told would look like a better one.
  if (context.textLost) throw std::bad_alloc();
  return ResultOfSigner(context);
}

}  // namespace

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

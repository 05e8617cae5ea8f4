// Signing of manifest.h: ends the document, has it signed and, when the format wants it, time-stamped.

#include <algorithm>

#include "fileio/local_file.h"
#include "report/secret_text.h"
#include "report/show_text.h"
#include "signing/crypto/secudir.h"
#include "signing/crypto/trace.h"
#include "signing/manifest/dkv_calls.h"
#include "signing/manifest/manifest_document.h"
#include "signing/manifest/timestamp_request.h"

namespace tolven {
namespace {

struct SigningKey {
  std::string profile;
  const char* password;
};

// For signing alone, a name that SECUDIR does not have may be a file of the directory where the run began.
// What is trusted without being named lies in SECUDIR or nowhere.
std::string FileOfStartDirectory(const std::string& name) {
  if (name.empty() || name.find('/') != std::string::npos || name.starts_with("pkcs11:")) return {};
  if (name == kProductiveKey || name == kValidationKey || name == "QELtimestamp") return {};
  return InStartDirectory("./" + name);
}

// One attempt with the profile of the key.
int TrySign(ManifestContext& context, const SigningKey& key, DkvPtr<DkvOctetstring>& made,
            std::string& info) {
  const DkvPtr<SigRcpDkvInfo> signer = DkvProfile(context.library, key.profile, key.password);
  const DkvOctetstring content = DkvView(context.SignedText());
  const DkvLock lock;
  const int rc =
      DkvCall(context.library, made, DkvLibSign, kFormatPkcs7.data(), context.signatureAlgorithm.c_str(),
              &content, static_cast<const SigRcpDkvInfo*>(signer.get()));
  info = DkvInfo(context.library);
  return rc;
}

int MakeSignature(ManifestContext& context, SigningKey& key, std::vector<std::uint8_t>& signature) {
  ManifestTrace("DkvSign set signer key: %s\n", HidePins(key.profile).c_str());
  if (IsGiven(key.password)) ManifestTrace("DkvSign set password for signer key\n");
  ManifestTrace("DkvSign set signature format : %s\n", kFormatPkcs7.data());
  ManifestTrace("DkvSign set signature alg. : %s\n", context.signatureAlgorithm.c_str());

  DkvPtr<DkvOctetstring> made;
  std::string info;
  int rc = TrySign(context, key, made, info);
  const std::string file = FileOfStartDirectory(key.profile);
  if (rc == DKV_ERR_NO_PSE && !file.empty()) {
    if (LocalFile(file, LocalFile::Links::kFollow).IsOpen()) {
      key.profile = file;
      rc = TrySign(context, key, made, info);
    } else {
      info += " There is no such file in the start directory either.";
    }
  }
  if (rc == DKV_OK && made != nullptr) {
    signature = DkvBytes(*made);
    context.signingWarning = info;
    return SMF_OK;
  }
  context.dkvErrorCode = rc;
  ManifestTrace("DkvSign failed with %d\n", rc);
  Fail(context, SMF_ESIGNATURE,
       "Signing with the key >" + ShowText(HidePins(key.profile)) + "< failed. " +
           ShowText(DkvReason(rc, info)));
  if (rc == DKV_ERR_NO_PSE) {
    Fail(context, SMF_ESIGNATURE, "A key and its certificate are needed; the command tolven-pse makes them.");
  }
  return SMF_ESIGNATURE;
}

int AddTimestamp(ManifestContext& context, const SigningKey& key, const char* tsaUrl, const char* proxyUrl,
                 std::vector<std::uint8_t>& signature) {
  SmfTimestampRequest request;
  request.library = context.library;
  request.signature = std::move(signature);
  request.pse = key.profile;
  request.password = key.password == nullptr ? "" : key.password;
  request.tsaUrl = tsaUrl == nullptr ? "" : tsaUrl;
  request.proxyUrl = proxyUrl == nullptr ? "" : proxyUrl;
  if (SmfUtilTimestampRequest(request) != SMF_OK) {
    context.dkvErrorCode = request.dkvErrorCode;
    return Fail(context, SMF_ESIGNATURE, request.errorText);
  }
  signature = std::move(request.stamped);
  return SMF_OK;
}

int SignBody(ManifestContext& context, SigningKey key, const char* tsaUrl, const char* proxyUrl) {
  std::vector<std::uint8_t> signature;
  int result = MakeSignature(context, key, signature);
  if (result == SMF_OK && context.signatureFormat == kFormatPkcs7Tstamp) {
    result = AddTimestamp(context, key, tsaUrl, proxyUrl, signature);
  }
  return result == SMF_OK ? AppendSignatureBlock(context, signature) : result;
}

int Sign(ManifestContext& context, const char* signerName, const char* pse, const char* password,
         const char* tsaUrl, const char* proxyUrl) {
  if (context.mode != ManifestMode::kWrite) {
    return Fail(context, SMF_ERROR, "Manifest context is not ready to sign (read mode)");
  }
  if (context.bodyEnded || context.fileOpen) {
    return Fail(context, SMF_ERROR, "Manifest context is not ready to sign");
  }
  if (context.library == nullptr) return Fail(context, SMF_EINIT, "Manifest context is not initialized");
  const char* signer = IsGiven(signerName) ? signerName : kValidationKey;
  const SigningKey key{IsGiven(pse) ? pse : signer, password};
  if (const int result = EndBody(context); result != SMF_OK) return result;
  const int result = SignBody(context, key, tsaUrl, proxyUrl);
  if (result != SMF_OK) ReopenBody(context);
  return result;
}

}  // namespace

int ManifestLocalSign(ManifestContext* context, const char* signerName, const char* pse, const char* password,
                      const char* tsaUrl, const char* proxyUrl) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&] { return Sign(c, signerName, pse, password, tsaUrl, proxyUrl); });
}

int ManifestSign(ManifestContext* context, const char* signerName, const char* pse, const char* password,
                 char* output, std::size_t outputSize, std::size_t* written, const char* tsaUrl,
                 const char* proxyUrl) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    if (output == nullptr || written == nullptr) {
      return Fail(c, SMF_EINVARG, "Output buffer for manifest file is null");
    }
    *written = 0;
    if (const int result = Sign(c, signerName, pse, password, tsaUrl, proxyUrl); result != SMF_OK)
      return result;
    if (c.text.size() > outputSize) return Fail(c, SMF_EINVARG, "Output buffer for manifest file too small");
    std::copy(c.text.begin(), c.text.end(), output);
    *written = c.text.size();
    return SMF_OK;
  });
}

}  // namespace tolven

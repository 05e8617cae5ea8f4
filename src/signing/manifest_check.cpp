#include "signing/manifest_check.h"

#include <span>
#include <vector>

#include "archive/memory_streams.h"
#include "fileio/local_file.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "signing/crypto/dkv.h"
#include "signing/crypto/trace.h"
#include "signing/key_password.h"
#include "signing/signed_manifest.h"

namespace tolven {

namespace {

// Revocation lists of whole authorities stay far below this.
constexpr std::size_t kMaxCrlBytes = std::size_t{64} << 20;

std::string ReadCrlFile(const char* path) {
  const LocalFile file(path, LocalFile::Links::kFollow);
  if (!file.IsOpen()) {
    throw CInvalManifestExcept(std::string("Cannot open CRL file >") + ShowText(path) + "<", SMF_ECRL, 0);
  }
  std::string bytes;
  if (file.ReadAll(bytes, kMaxCrlBytes) != 0) {
    throw CInvalManifestExcept("CRL file could not be read ", SMF_ECRL, 0);
  }
  return bytes;
}

std::span<const std::uint8_t> AsBytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

std::string NotSignedMessage(const std::string& archiveName) {
  return "TOLVEN: " + ShowText(archiveName) + " is not digitally signed";
}

std::string ChangedContentMessage(const std::string& archiveName) {
  return "Archive " + ShowText(archiveName) +
         " is already signed, but the content was modified.\n        This is not supported!";
}

std::string GetManifestContent(CArchive& archive, std::int64_t& offset) {
  const std::int64_t position = archive.Position();
  std::string text;
  offset = 0;
  for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
    if (!entry->IsSignedManifest()) continue;
    auto& manifest = static_cast<CSignedManifest&>(*entry);
    manifest.AddToDirEx(&archive, false);
    if (!archive.AtEnd()) throw CInvalManifestExcept(ChangedContentMessage(archive.Name()), 0, 0);
    offset = manifest.Start();
    text = manifest.TakeText();
    break;
  }
  archive.Seek(position);
  return text;
}

void InitManifest(ManifestContext* context, const CmdOptions& options, const char* fileHash,
                  const char* format, const char* signatureHash) {
  int code = ManifestStartup();
  if (std::FILE* trace = ManifestTraceFile(); trace != nullptr) NoteRunFile(fileno(trace));
  if (code == SMF_OK) {
    code = ManifestInit(context, options.securityLibrary, fileHash, format, signatureHash);
  }
  if (code != SMF_OK) throw CInvalManifestExcept(ManifestGetLastError(context), code, 0);
}

void InitForReading(ManifestContext* context, const CmdOptions& options) {
  InitManifest(context, options, "SHA256", "PKCS7-TSTAMP", "SHA256");
}

int CSmfVerify(ManifestContext* context, std::string document, IRunServices& run, unsigned flags,
               bool verifyFiles) {
  const CmdOptions& options = run.Options();
  std::string crl;
  if (options.crlFile != nullptr) {
    crl = ReadCrlFile(options.crlFile);
    flags |= kManifestRequireCrl;
  }
  ManifestSetText(context, std::move(document));
  const auto verify = [&] {
    const std::string_view text = ManifestGetText(context);
    return ManifestVerifyEx(context, text.data(), text.size(), options.key, options.key, options.password,
                            AsBytes(crl), flags, verifyFiles, true);
  };
  int code = verify();
  if (code == SMF_ESIGNATURE && options.key != nullptr && HasPasswordNow(context, run)) {
    code = verify();
  }
  return code == SMF_ESIGNATURE_EXTERNAL || code == SMF_ESIGNATURE_VALIDATION ? SMF_OK : code;
}

int CSmfSign(ManifestContext* context, const CmdOptions& options) {
  return ManifestLocalSign(context, options.key, options.key, options.password, options.tsaUrl,
                           options.proxyUrl);
}

bool HasPasswordNow(const ManifestContext* context, IRunServices& run) {
  return ManifestLastDkvErrorCode(context) == DKV_ERR_PASSWORD && ObtainPassword(run);
}

void ThrowManifestError(ManifestContext* context, int code) {
  if (code == SMF_OK) return;
  const int dkvCode = ManifestLastDkvErrorCode(context);
  if (code == SMF_ESIGNATURE) throw CInvalSignatureExcept(ManifestGetLastError(context), dkvCode);
  throw CInvalManifestExcept(ManifestGetLastError(context), code, dkvCode);
}

}  // namespace tolven

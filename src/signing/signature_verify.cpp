#include "signing/signature_verify.h"

#include <optional>
#include <utility>

#include "fileio/local_file.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "signing/manifest_check.h"
#include "signing/signed_manifest.h"

namespace tolven {

namespace {

// No manifest of a real archive comes near it.
constexpr std::size_t kMaxManifestBytes = std::size_t{512} << 20;

// Null, or what went wrong. Only a regular file is opened: nothing here may wait for a pipe.
std::optional<std::string> ReadManifest(const std::string& name, std::string& text) {
  const LocalFile file(name, LocalFile::Links::kFollow);
  if (!file.IsOpen()) return "TOLVEN: Manifest file was not found ";
  if (file.ReadAll(text, kMaxManifestBytes) != 0) {
    return "TOLVEN: Manifest File Buffer could not be created ";
  }
  return std::nullopt;
}

}  // namespace

std::string CSignatureVerify::ManifestFile() const {
  const CmdOptions& options = m_run.Options();
  if (options.manifestFile != nullptr) return options.manifestFile;
  const auto& archives = m_run.CmdLine().GetArchsToProcess();
  return archives.empty() ? std::string() : archives.front();
}

void CSignatureVerify::Execute() {
  const CmdOptions& options = m_run.Options();
  const std::string name = ManifestFile();
  std::string text;
  if (const std::optional<std::string> failure = ReadManifest(name, text)) {
    PrintLine(*failure);
    CExcept::NotifyProcessor(kErrorManifestDiffers);
    return;
  }
  const ManifestContextPtr context = ManifestMakeContext();
  int code = ManifestStartup();
  if (code == SMF_OK)
    code = ManifestInit(context.get(), options.securityLibrary, "SHA256", "PKCS7-TSTAMP", "SHA256");
  std::string detail;
  if (code == SMF_OK) {
    try {
      code = CSmfVerify(context.get(), std::move(text), m_run, 0, true);
    } catch (const CExcept& error) {  // the CRL file, or the password
      code = SMF_ECRL;
      detail = error.GetMsg();
    }
  }
  if (code != SMF_OK) {
    if (detail.empty()) detail = ManifestGetLastError(context.get());
    PrintLine("TOLVEN: Manifest verification failed with with ErrorCode: \nERROR:  " + detail);
    CExcept::NotifyProcessor(kErrorManifestDiffers);
    return;
  }
  PrintLine("TOLVEN:  Signature of manifest " + ShowText(name) + " was successfully validated");
  if (options.verbose) PrintSignatureDetails(context.get(), "External");
}

}  // namespace tolven

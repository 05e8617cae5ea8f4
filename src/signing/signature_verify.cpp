#include "signing/signature_verify.h"

#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "archive/memory_streams.h"
#include "fileio/file_stream.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "signing/manifest_check.h"
#include "signing/signed_manifest.h"

namespace tolven {

namespace {

constexpr int kErrorManifest = 55;

// The whole file in `text`. False when it cannot be read or is larger than any manifest.
bool ReadWhole(CFileStream& file, CBufferedStream& text) {
  std::array<unsigned char, 65536> piece{};
  for (;;) {
    unsigned long done = 0;
    unsigned long kept = 0;
    if (!file.Read(piece.data(), piece.size(), &done) || !text.Write(piece.data(), done, &kept)) return false;
    if (done < piece.size()) return true;
  }
}

// Null, or what went wrong. Only a regular file is opened: nothing here may wait for a pipe.
std::optional<std::string> ReadManifest(const std::string& name, CBufferedStream& text) {
  struct stat status {};
  errno = 0;
  CFileStream file;
  if (stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode)) file.Open(name, kOpenRead, 0);
  if (!file.Open()) return "TOLVEN: Manifest file was not found ";
  if (!ReadWhole(file, text)) return "TOLVEN: Manifest File Buffer could not be created ";
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
  CBufferedStream text;
  if (const std::optional<std::string> failure = ReadManifest(name, text)) {
    PrintLine(*failure);
    CExcept::NotifyProcessor(kErrorManifest);
    return;
  }
  const ManifestContextPtr context = ManifestMakeContext();
  int code = ManifestStartup();
  if (code == SMF_OK)
    code = ManifestInit(context.get(), options.securityLibrary, "SHA256", "PKCS7-TSTAMP", "SHA256");
  std::string detail;
  if (code == SMF_OK) {
    try {
      code = CSmfVerify(context.get(), text.Take(), m_run, 0, true);
    } catch (const CExcept& error) {  // the CRL file, or the password
      code = SMF_ECRL;
      detail = error.GetMsg();
    }
  }
  if (code != SMF_OK) {
    if (detail.empty()) detail = ManifestGetLastError(context.get());
    PrintLine("TOLVEN: Manifest verification failed with with ErrorCode: \nERROR:  " + detail);
    CExcept::NotifyProcessor(kErrorManifest);
    return;
  }
  PrintLine("TOLVEN:  Signature of manifest " + ShowText(name) + " was successfully validated");
  if (options.verbose) PrintSignatureDetails(context.get(), "External");
}

}  // namespace tolven

#include "signing/signed_manifest.h"

#include <cerrno>
#include <ctime>

#include "archive/entry_data.h"
#include "cmdline/run_services.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "signing/manifest_witness.h"

namespace tolven {

CSignedManifest::CSignedManifest(std::string_view text, PackContext& pack)
    : CDirEntry(std::string(kManifestName), pack) {
  std::string copy(text);
  unsigned long done = 0;
  if (!m_text.Write(reinterpret_cast<unsigned char*>(copy.data()), copy.size(), &done)) {
    throw CWriteExcept(m_path, {ENOMEM});
  }
  m_pStream = &m_text;
}

bool CSignedManifest::IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                                     std::span<const std::uint8_t>) {
  if (header.IsEmpty()) return false;
  if (header.type == kTypeManifest) return true;
  return header.type == kTypeRegular && header.mode == kManifestMode && storedName == kManifestName;
}

bool CSignedManifest::FillEntryHeader(EntryHeader& header) {
  header = EntryHeader{};
  header.type = kTypeRegular;
  header.mode = kManifestMode;
  header.size = static_cast<std::int64_t>(Text().size());
  header.mtime = std::time(nullptr);
  return true;
}

void CSignedManifest::SetReadState(const std::string& storedName, const std::string& shownName,
                                   const EntryHeader& header, const std::vector<std::uint8_t>& accessInfo,
                                   std::int64_t start, bool hash) {
  CDirEntry::SetReadState(storedName, shownName, header, accessInfo, start, hash);
  m_text.Take();
}

void CSignedManifest::AddToDirEx(CArchive* archive, bool) {
  CEntryDataReader reader(*archive, archive->Buffers(), m_shownName);
  std::span<const std::uint8_t> piece;
  while (reader.Next(piece)) {
    unsigned long done = 0;
    // Fails beyond the stream's limit: no manifest of a real archive comes near it.
    if (!m_text.Write(piece.data(), piece.size(), &done)) throw CDecompExcept(m_shownName);
  }
  if (reader.StoredCrc() != 0 && reader.StoredCrc() != reader.Crc()) throw CChecksumExcept(m_shownName);
}

void PrintSignatureDetails(ManifestContext* context, const char* unknownSigner) {
  // Copied first: asking for a name that is missing appends to the error text.
  const int category = ManifestGetErrorCategory(context);
  const std::string reason = ManifestGetLastError(context);
  std::string subject;
  std::string issuer;
  const int subjectCode = ManifestSignatureSubject(context, &subject);
  const int issuerCode = ManifestSignatureIssuer(context, &issuer);
  // A name that there is no memory for is not one that is missing.
  if (subjectCode == SMF_ENOMEM || issuerCode == SMF_ENOMEM) throw std::bad_alloc();
  std::string signer = ManifestSignatureName(context);
  if (signer.empty() || signer == "NULL") signer = unknownSigner;
  PrintLine(std::string("TOLVEN: Error category    >") + ManifestGetErrorCategoryName(context) + "<");
  if (category != MANIFEST_CATEGORY_NONE) PrintLine("TOLVEN: Validation reason >" + reason + "<");
  PrintLine("TOLVEN: Signature Subject >" + ShowText(subject) + "<");
  PrintLine("TOLVEN: Signature Issuer  >" + ShowText(issuer) + "<");
  PrintLine("TOLVEN: Signature Type    >" + signer + "<");
}

void CSignedManifest::PrintMessage(CArchive& archive, IRunServices& run) {
  if (!run.Options().verbose || !archive.IsSigned() || archive.Witness() == nullptr) return;
  PrintSignatureDetails(CManifestWitness::ManifestOf(archive), "Unknown signer");
}

void CSignedManifest::CheckArchiveSigned(CArchive& archive, bool mustBeSigned, const std::string& message,
                                         int exitCode) {
  bool isSigned = false;
  for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
    isSigned = isSigned || entry->IsSignedManifest();
  }
  if (isSigned != mustBeSigned) throw CExcept(message, exitCode);
}

void CSignedManifest::SetStartDirectory(const std::string& directory) {
  ManifestSetStartDirectory(directory);
}

bool CSignedManifest::IsSigning(const IRunServices& run) {
  const CmdOptions& options = run.Options();
  return options.sign || options.verifySignature || run.Command() == CMD_SIGN;
}

}  // namespace tolven

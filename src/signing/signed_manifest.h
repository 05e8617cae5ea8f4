#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "archive/memory_streams.h"
#include "archive/signature.h"
#include "signing/manifest/manifest.h"

namespace tolven {

// The signed manifest: the last entry of a signed archive, holding every file's digest under one signature.
// Also the home of the flows that make and check it. Files are covered; directories and links are not.
class CSignedManifest : public CDirEntry {
 public:
  CSignedManifest() = default;
  // An entry to be written, with a copy of the signed text.
  CSignedManifest(std::string_view text, PackContext& pack);

  // True iff header and stored name mark a signed manifest: type "SM", or type "RG" with the one mode and
  // name that are reserved for it; never for an entry without data.
  static bool IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                             std::span<const std::uint8_t> accessInfo);

  bool IsSignedManifest() const override { return true; }
  double GetSpaceNeeded() const override { return 0.0; }
  bool FillEntryHeader(EntryHeader& header) override;
  void SetReadState(const std::string& storedName, const std::string& shownName, const EntryHeader& header,
                    const std::vector<std::uint8_t>& accessInfo, std::int64_t start, bool hash) override;
  // Decompresses the text into memory; `write` makes no difference, it never goes to disk.
  void AddToDirEx(CArchive* archive, bool write) override;
  // The text: as given, or as read by AddToDirEx.
  std::span<const unsigned char> Text() const { return m_text.Contents(); }
  // The same, handed over.
  std::string TakeText() { return m_text.Take(); }

  // --- Flows. What the commands reach as ISignature.
  static bool IsSigning(const IRunServices& run);
  static void SetStartDirectory(const std::string& directory);
  static void VerifyArchiveSignature(bool writing, CArchive& archive, IRunServices& run);
  static void CheckErrors(CArchive& archive, CDirEntry* entry, unsigned long& counter,
                          const CSelection* selection);
  static void PassEntry(CArchive& archive, const CDirEntry& entry);
  static void PrintMessage(CArchive& archive, IRunServices& run);
  static void CreateArchiveSignature(CArchive& archive, IRunServices& run, PackContext& pack);
  static void CheckArchiveSigned(CArchive& archive, bool mustBeSigned, const std::string& message,
                                 int exitCode);

 private:
  CBufferedStream m_text;
};

// The flows for commands, which know the interface alone.
class CSignature : public ISignature {
 public:
  bool IsSigning(const IRunServices& run) const override { return CSignedManifest::IsSigning(run); }
  void SetStartDirectory(const std::string& directory) const override {
    CSignedManifest::SetStartDirectory(directory);
  }
  void VerifyArchiveSignature(bool writing, CArchive& archive, IRunServices& run) const override {
    CSignedManifest::VerifyArchiveSignature(writing, archive, run);
  }
  void CheckErrors(CArchive& archive, CDirEntry* entry, unsigned long& counter,
                   const CSelection* selection) const override {
    CSignedManifest::CheckErrors(archive, entry, counter, selection);
  }
  void PassEntry(CArchive& archive, const CDirEntry& entry) const override {
    CSignedManifest::PassEntry(archive, entry);
  }
  void PrintMessage(CArchive& archive, IRunServices& run) const override {
    CSignedManifest::PrintMessage(archive, run);
  }
  void CreateArchiveSignature(CArchive& archive, IRunServices& run, PackContext& pack) const override {
    CSignedManifest::CreateArchiveSignature(archive, run, pack);
  }
  void CheckArchiveSigned(CArchive& archive, bool mustBeSigned, const std::string& message,
                          int exitCode) const override {
    CSignedManifest::CheckArchiveSigned(archive, mustBeSigned, message, exitCode);
  }
};

// Who signed, line by line; shared with the check of an external manifest. `unknownSigner` stands for a
// signer without a name.
void PrintSignatureDetails(ManifestContext* context, const char* unknownSigner);

}  // namespace tolven

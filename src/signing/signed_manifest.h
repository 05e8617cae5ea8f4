#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "archive/memory_streams.h"

namespace tolven {

class CSelection;

// The signed manifest: the last entry of a signed archive, holding every file's digest under one signature.
// Also the home of the flows that make and check it. Files are covered; directories and links are not.
class CSignedManifest : public CDirEntry {
 public:
  CSignedManifest() = default;
  // An entry to be written, with a copy of the signed text.
  explicit CSignedManifest(std::string_view text);

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

  // --- Flows. Each is called at its fixed point by the commands; failures are exceptions.

  // Before a run goes elsewhere for what it packs: keys and trust of relative names lie in this directory.
  static void SetStartDirectory(const std::string& directory);
  // Before the first entry. Reading: checks the signature of a signed archive and readies the archive for
  // checking the entries. Writing: readies the manifest that the entries will feed, hashes what an archive to
  // be appended to or signed already holds, and leaves the write position where the next entry goes.
  static void VerifyArchiveSignature(bool writing, CArchive* archive, CProcessor* processor);
  // With an entry: runs its data through the digest and counts it when it is not listed or differs. Without:
  // raises what was counted; with `selection` also when a listed file that it takes was not met.
  static void CheckErrors(CArchive* archive, CDirEntry* entry, unsigned long& counter,
                          const CSelection* selection = nullptr);
  // An entry that was not selected goes by: a later one of its name still answers to its own record.
  static void PassEntry(CArchive* archive, const CDirEntry& entry);
  // At the end of a listing, test or extraction: who signed, with -v.
  static void PrintMessage(CArchive* archive, CProcessor* processor);
  // After the last entry: signs and writes the entry.
  static void CreateArchiveSignature(CArchive* archive, CProcessor* processor, ICompressStrategy* strategy);
  // Raises CExcept(message, exitCode) when the archive is signed and must not be, or the other way round.
  static void CheckArchiveSigned(CArchive* archive, bool mustBeSigned, const std::string& message,
                                 int exitCode);

  // True when the run's options ask for a signature to be made.
  static bool IsSigning(const CProcessor& processor);

 private:
  CBufferedStream m_text;
};

// Who signed, line by line; shared with the check of an external manifest. `unknownSigner` stands for a
// signer without a name.
void PrintSignatureDetails(ManifestContext* context, const char* unknownSigner);

}  // namespace tolven

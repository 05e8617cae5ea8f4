// The flows that sign and verify archives, called by the commands at their fixed points.

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <unordered_map>

#include "archive/selection.h"
#include "fileio/utils.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "signing/manifest_check.h"
#include "signing/signed_manifest.h"

namespace tolven {

namespace {

constexpr int kErrorNotSigned = 59;
constexpr const char* kFormatPlain = "PKCS7";
constexpr const char* kFormatTimeStamp = "PKCS7-TSTAMP";

const char* SigningFormat(const CmdOptions& options) {
  return options.tsaUrl != nullptr ? kFormatTimeStamp : kFormatPlain;
}

// Key, password and library are proved before the first byte is written: a probe document is signed and
// forgotten. Without a time stamp, which costs a request.
void ProveKey(CProcessor& processor) {
  const CmdOptions& options = processor.Options();
  for (;;) {
    const ManifestContextPtr probe = ManifestMakeContext();
    InitManifest(probe.get(), options, options.hashAlgorithm, kFormatPlain, options.signatureHashAlgorithm);
    const int code = CSmfSign(probe.get(), options);
    if (code == SMF_ESIGNATURE && HasPasswordNow(probe.get(), processor)) continue;  // once: it is given now
    ThrowManifestError(probe.get(), code);
    return;
  }
}

// Whether there is a list to compare with. Who asked for the comparison must not be told that all is well
// when there was none: with `required` a missing one is an error.
bool HasExternal(const CmdOptions& options, bool required) {
  if (options.manifestFile == nullptr) return false;
  errno = 0;
  if (CUtils::ExistsFile(options.manifestFile)) return true;
  // One that cannot be looked at may be there, and may differ.
  if (errno != ENOENT && errno != ENOTDIR) throw COpenExcept(options.manifestFile);
  if (!required) return false;
  const std::string name = ShowText(options.manifestFile);
  throw CInvalManifestExcept("External manifest file >" + name + "< does not exist", SMF_EBODY_NOT_EQUAL, 0);
}

void CompareWithExternal(ManifestContext* context, const CmdOptions& options, bool required) {
  if (!HasExternal(options, required)) return;
  ThrowManifestError(context, ManifestVerifyBody(context, options.manifestFile));
}

void VerifyForReading(CArchive& archive, CProcessor& processor) {
  const CmdOptions& options = processor.Options();
  if (!options.verifyAsked && !options.sign) return;
  std::int64_t offset = 0;
  std::string text = GetManifestContent(archive, offset);
  if (offset == 0) {
    errno = 0;
    if (options.verifyAsked) throw CExcept(NotSignedMessage(archive.Name()), kErrorNotSigned, false);
    return;
  }
  ManifestContextPtr context = ManifestMakeContext();
  InitForReading(context.get(), options);
  ThrowManifestError(context.get(), CSmfVerify(context.get(), std::move(text), processor, 0, false));
  CompareWithExternal(context.get(), options, options.verifyAsked);
  archive.SetManifest(std::move(context));
  archive.SetHashEntries(true);
}

// The manifest that the archive ended with before this run.
struct OldSignature {
  std::int64_t start = 0;  // 0: the archive was not signed
  std::string text;
};

// Passes every file of the archive through the manifest in its context.
OldSignature HashExistingEntries(CArchive& archive, unsigned long& failed) {
  OldSignature old;
  for (CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
    entry->AddToDirEx(&archive, false);
    if (entry->IsSignedManifest()) {
      errno = 0;
      if (!archive.AtEnd()) throw CInvalManifestExcept(ChangedContentMessage(archive.Name()), 0, 0);
      old.start = entry->Start();
      old.text = static_cast<CSignedManifest*>(entry)->TakeText();
      break;
    }
    if (entry->DoManifestAPI() && !entry->IsEntrySigned()) ++failed;
  }
  return old;
}

// The old signature is accepted by the certificates of -key, else by the installed ones.
ManifestContextPtr VerifyOldSignature(OldSignature& old, CProcessor& processor) {
  ManifestContextPtr context = ManifestMakeContext();
  InitForReading(context.get(), processor.Options());
  ThrowManifestError(context.get(), CSmfVerify(context.get(), std::move(old.text), processor,
                                               kManifestKeyIsOptional, false));
  return context;
}

// True iff the entries are what the old manifest lists. Two manifests of different digests cannot be
// compared; then the entries are run against the old one.
bool IsUnchanged(CArchive& archive, ManifestContextPtr& old) {
  ManifestContext* current = archive.Manifest();
  const std::string algorithm = ManifestFileHashAlgorithm(old.get());
  if (algorithm == ManifestFileHashAlgorithm(current)) return ManifestCompare(current, old.get()) == SMF_OK;
  ManifestContextPtr kept = archive.ExchangeManifest(std::move(old));
  unsigned long failed = 0;
  HashExistingEntries(archive, failed);
  const bool complete = ManifestCheckAllMet(archive.Manifest()) == SMF_OK;
  old = archive.ExchangeManifest(std::move(kept));
  return failed == 0 && complete;
}

void PrepareExisting(CArchive& archive, CProcessor& processor) {
  unsigned long failed = 0;
  OldSignature old = HashExistingEntries(archive, failed);
  if (old.start != 0 && processor.Options().verifySignature) {
    ManifestContextPtr context = VerifyOldSignature(old, processor);
    errno = 0;
    if (!IsUnchanged(archive, context)) {
      throw CInvalManifestExcept(ChangedContentMessage(archive.Name()), 0, 0);
    }
  }
  CSignedManifest::CheckErrors(&archive, nullptr, failed);
  if (old.start != 0) {
    archive.Seek(old.start);
  } else {
    archive.SeekToEnd();
  }
}

void PrepareForWriting(CArchive& archive, CProcessor& processor) {
  if (!CSignedManifest::IsSigning(processor)) return;
  const CmdOptions& options = processor.Options();
  static_cast<void>(HasExternal(options, true));
  ManifestContextPtr context = ManifestMakeContext();
  InitManifest(context.get(), options, options.hashAlgorithm, SigningFormat(options),
               options.signatureHashAlgorithm);
  ProveKey(processor);
  archive.SetManifest(std::move(context));
  archive.SetHashEntries(true);
  if (!archive.IsNew()) PrepareExisting(archive, processor);
}

// Counts the listed files that were asked for and have no entry, as failed ones; `text` names the first. The
// library's own check is for all files: one that nobody asked for must not show in its errors.
unsigned long CountMissing(CArchive& archive, const CSelection& selection, std::string& text) {
  ManifestFiles files;
  ManifestContext* context = archive.Manifest();
  if (ManifestGetFileCounter(context) == 0 || ManifestGetFileList(context, &files) != SMF_OK) return 0;
  unsigned long missing = 0;
  std::unordered_map<std::string_view, std::size_t> listed;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string name(files[i].name);
    if (!selection.AsksFor(name, archive.ShownName(name, false))) continue;
    if (++listed[files[i].name] <= selection.Met(name)) continue;
    if (++missing == 1) text = "File >" + ShowText(name) + "< of the manifest was not found";
  }
  if (missing > 0) archive.NoteManifestFailure(SMF_EFILENOTFOUND);
  return missing;
}

}  // namespace

void CSignedManifest::VerifyArchiveSignature(bool writing, CArchive* archive, CProcessor* processor) {
  if (writing) {
    PrepareForWriting(*archive, *processor);
  } else {
    VerifyForReading(*archive, *processor);
  }
}

void CSignedManifest::CheckErrors(CArchive* archive, CDirEntry* entry, unsigned long& counter,
                                  const CSelection* selection) {
  ManifestContext* context = archive->Manifest();
  if (context == nullptr) return;
  if (entry != nullptr) {
    if (!entry->DoManifestAPI()) return;
    entry->AddToDirEx(archive, false);
    if (!entry->IsEntrySigned()) ++counter;
    return;
  }
  std::string missing;
  const bool all = selection != nullptr && selection->SelectsAll();
  if (selection != nullptr && !all) counter += CountMissing(*archive, *selection, missing);
  errno = 0;
  if (all && counter == 0) {
    const int code = ManifestCheckAllMet(context);
    if (code != SMF_OK) throw CInvalManifestExcept(ManifestGetLastError(context), code, 0);
  }
  if (counter == 0) return;
  std::string detail = ManifestGetLastError(context);
  if (!detail.empty() && !missing.empty()) detail += '\n';
  detail += missing;
  if (counter > 1) detail = std::to_string(counter) + " files of the archive are invalid:\n" + detail;
  throw CInvalManifestExcept(detail, archive->ManifestFailure(), ManifestLastDkvErrorCode(context));
}

void CSignedManifest::PassEntry(CArchive* archive, const CDirEntry& entry) {
  if (archive->Manifest() == nullptr || !entry.DoManifestAPI()) return;
  const std::string& name = entry.GetStoredName();
  // A file without a record counts only when it is selected.
  static_cast<void>(ManifestPassFile(archive->Manifest(), name.data(), name.size()));
}

void CSignedManifest::CreateArchiveSignature(CArchive* archive, CProcessor* processor,
                                             ICompressStrategy* strategy) {
  // In scan-only mode nothing is written: the archive is given up anyway.
  if (!IsSigning(*processor) || processor->ScanOnly()) return;
  const CmdOptions& options = processor->Options();
  ManifestContext* context = archive->Manifest();
  const bool replaces = archive->IsSigned();
  CompareWithExternal(context, options, true);
  // In memory first: a signature or a time stamp that fails leaves the archive as it is.
  ThrowManifestError(context, CSmfSign(context, options));
  const std::string& warning = ManifestSigningWarning(context);
  if (!warning.empty()) std::fprintf(stderr, "TOLVEN: warning: %s\n", warning.c_str());
  CSignedManifest entry(ManifestGetText(context));
  strategy->SetDirectoryEntry(&entry);
  entry.AddToArchive(archive);
  strategy->execute(archive);
  if (replaces && !archive->Stream().Truncate()) throw CWriteExcept(archive->Name());
  if (options.verbose) {
    PrintLine("TOLVEN: Signature of archive " + ShowText(archive->Name()) + " was successfully created");
  }
}

}  // namespace tolven

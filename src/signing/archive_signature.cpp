// The flows that sign and verify archives, called by the commands at their fixed points.

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>

#include "archive/entry_data.h"
#include "fileio/utils.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "signing/manifest_check.h"
#include "signing/manifest_witness.h"
#include "signing/signed_manifest.h"

namespace tolven {

namespace {

constexpr const char* kFormatPlain = "PKCS7";
constexpr const char* kFormatTimeStamp = "PKCS7-TSTAMP";

const char* SigningFormat(const CmdOptions& options) {
  return options.tsaUrl != nullptr ? kFormatTimeStamp : kFormatPlain;
}

// Key, password and library are proved before the first byte is written: a probe document is signed and
// forgotten. Without a time stamp, which costs a request.
void ProveKey(IRunServices& run) {
  const CmdOptions& options = run.Options();
  for (;;) {
    const ManifestContextPtr probe = ManifestMakeContext();
    InitManifest(probe.get(), options, options.hashAlgorithm, kFormatPlain, options.signatureHashAlgorithm);
    const int code = CSmfSign(probe.get(), options);
    if (code == SMF_ESIGNATURE && HasPasswordNow(probe.get(), run)) continue;  // once: it is given now
    ThrowManifestError(probe.get(), code);
    return;
  }
}

// Whether there is a list to compare with. Who asked for the comparison must not be told that all is well
// when there was none: with `required` a missing one is an error.
bool HasExternal(const CmdOptions& options, bool required) {
  if (options.manifestFile == nullptr) return false;
  if (CUtils::ExistsFile(options.manifestFile)) return true;
  const SystemError error = LastSystemError();
  // One that cannot be looked at may be there, and may differ.
  if (error.number != ENOENT && error.number != ENOTDIR) throw COpenExcept(options.manifestFile, error);
  if (!required) return false;
  const std::string name = ShowText(options.manifestFile);
  throw CInvalManifestExcept("External manifest file >" + name + "< does not exist", SMF_EBODY_NOT_EQUAL, 0);
}

void CompareWithExternal(ManifestContext* context, const CmdOptions& options, bool required) {
  if (!HasExternal(options, required)) return;
  ThrowManifestError(context, ManifestVerifyBody(context, options.manifestFile));
}

void VerifyForReading(CArchive& archive, IRunServices& run) {
  const CmdOptions& options = run.Options();
  if (!options.verifyAsked && !options.sign) return;
  std::int64_t offset = 0;
  std::string text = GetManifestContent(archive, offset);
  if (offset == 0) {
    if (options.verifyAsked) throw CExcept(NotSignedMessage(archive.Name()), kErrorNotSigned);
    return;
  }
  ManifestContextPtr context = ManifestMakeContext();
  InitForReading(context.get(), options);
  ThrowManifestError(context.get(), CSmfVerify(context.get(), std::move(text), run, 0, false));
  CompareWithExternal(context.get(), options, options.verifyAsked);
  archive.ExchangeWitness(std::make_unique<CManifestWitness>(std::move(context)));
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
ManifestContextPtr VerifyOldSignature(OldSignature& old, IRunServices& run) {
  ManifestContextPtr context = ManifestMakeContext();
  InitForReading(context.get(), run.Options());
  ThrowManifestError(context.get(),
                     CSmfVerify(context.get(), std::move(old.text), run, kManifestKeyIsOptional, false));
  return context;
}

// True iff the entries are what the old manifest lists. Two manifests of different digests cannot be
// compared; then the entries are run against the old one.
bool IsUnchanged(CArchive& archive, ManifestContextPtr old) {
  ManifestContext* current = CManifestWitness::ManifestOf(archive);
  const std::string algorithm = ManifestFileHashAlgorithm(old.get());
  if (algorithm == ManifestFileHashAlgorithm(current)) return ManifestCompare(current, old.get()) == SMF_OK;
  auto kept = archive.ExchangeWitness(std::make_unique<CManifestWitness>(std::move(old)));
  unsigned long failed = 0;
  HashExistingEntries(archive, failed);
  const bool complete = ManifestCheckAllMet(CManifestWitness::ManifestOf(archive)) == SMF_OK;
  archive.ExchangeWitness(std::move(kept));
  return failed == 0 && complete;
}

void PrepareExisting(CArchive& archive, IRunServices& run) {
  unsigned long failed = 0;
  OldSignature old = HashExistingEntries(archive, failed);
  if (old.start != 0 && run.Options().verifySignature) {
    ManifestContextPtr context = VerifyOldSignature(old, run);
    if (!IsUnchanged(archive, std::move(context))) {
      throw CInvalManifestExcept(ChangedContentMessage(archive.Name()), 0, 0);
    }
  }
  CSignedManifest::CheckErrors(archive, nullptr, failed, nullptr);
  if (old.start != 0) {
    archive.Seek(old.start);
  } else {
    archive.SeekToEnd();
  }
}

void PrepareForWriting(CArchive& archive, IRunServices& run) {
  if (!CSignedManifest::IsSigning(run)) return;
  const CmdOptions& options = run.Options();
  static_cast<void>(HasExternal(options, true));
  ManifestContextPtr context = ManifestMakeContext();
  InitManifest(context.get(), options, options.hashAlgorithm, SigningFormat(options),
               options.signatureHashAlgorithm);
  ProveKey(run);
  archive.ExchangeWitness(std::make_unique<CManifestWitness>(std::move(context)));
  if (!archive.IsNew()) PrepareExisting(archive, run);
}

}  // namespace

void CSignedManifest::VerifyArchiveSignature(bool writing, CArchive& archive, IRunServices& run) {
  if (writing) {
    PrepareForWriting(archive, run);
  } else {
    VerifyForReading(archive, run);
  }
}

void CSignedManifest::CheckErrors(CArchive& archive, CDirEntry* entry, unsigned long& counter,
                                  const CSelection* selection) {
  if (archive.Witness() == nullptr) return;
  if (entry == nullptr) {
    archive.Witness()->Verdict(archive, selection, counter);
  } else if (entry->DoManifestAPI()) {
    entry->AddToDirEx(&archive, false);
    if (!entry->IsEntrySigned()) ++counter;
  }
}

void CSignedManifest::PassEntry(CArchive& archive, const CDirEntry& entry) {
  if (archive.Witness() != nullptr && entry.DoManifestAPI()) archive.Witness()->Pass(entry.GetStoredName());
}

void CSignedManifest::CreateArchiveSignature(CArchive& archive, IRunServices& run, PackContext& pack) {
  // In scan-only mode nothing is written: the archive is given up anyway.
  if (!IsSigning(run) || run.ScanOnly()) return;
  const CmdOptions& options = run.Options();
  ManifestContext* context = CManifestWitness::ManifestOf(archive);
  const bool replaces = archive.IsSigned();
  CompareWithExternal(context, options, true);
  // In memory first: a signature or a time stamp that fails leaves the archive as it is.
  ThrowManifestError(context, CSmfSign(context, options));
  const std::string& warning = ManifestSigningWarning(context);
  if (!warning.empty()) std::fprintf(stderr, "TOLVEN: warning: %s\n", warning.c_str());
  CSignedManifest entry(ManifestGetText(context), pack);
  pack.strategy.SetDirectoryEntry(&entry);
  entry.AddToArchive(&archive);
  pack.strategy.execute(&archive);
  archive.Output().Drain();
  if (replaces && !archive.Stream().Truncate()) throw CWriteExcept(archive.Name(), LastSystemError());
  if (options.verbose) {
    PrintLine("TOLVEN: Signature of archive " + ShowText(archive.Name()) + " was successfully created");
  }
}

}  // namespace tolven

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "archive/archive.h"
#include "cmdline/run_services.h"
#include "signing/manifest/manifest.h"

// What the signing flows share: finding the manifest of an archive, checking it, and turning the manifest
// library's codes into exceptions.

namespace tolven {

// Texts that users and scripts know.
std::string NotSignedMessage(const std::string& archiveName);
std::string ChangedContentMessage(const std::string& archiveName);

// Finds the signed manifest of an archive by walking it from its first entry, reads its text, and restores
// the read position. Empty, with `offset` 0, for an unsigned archive. `offset`: where its entry starts. A
// manifest with anything behind it, a second one among it, is the changed-content error (54).
std::string GetManifestContent(CArchive& archive, std::int64_t& offset);

// Readies a context with the library of -L. Failure is CInvalManifestExcept.
void InitManifest(ManifestContext* context, const CmdOptions& options, const char* fileHash,
                  const char* format, const char* signatureHash);
// The same with the defaults for a document that is read: what it names itself wins over these.
void InitForReading(ManifestContext* context, const CmdOptions& options);

// Takes the document over and checks its signature by the certificates of -key (else the installed ones; with
// kManifestKeyIsOptional in `flags` by either) and the CRLs of -crl; with `verifyFiles` also the files on
// disk. Asks for the key's password when it turns out to need one. SMF_OK also for a signature of an external
// or the validation key; the context's category and text then carry the warning. A CRL file that cannot be
// read is an exception.
[[nodiscard]] int CSmfVerify(ManifestContext* context, std::string document, IRunServices& run,
                             unsigned flags, bool verifyFiles);

// Signs the context's document with -key and its password.
[[nodiscard]] int CSmfSign(ManifestContext* context, const CmdOptions& options);

// True when what failed in that context wanted a password that nobody has given so far, and there now is one:
// worth another attempt, with a fresh context.
[[nodiscard]] bool HasPasswordNow(const ManifestContext* context, IRunServices& run);

// CInvalSignatureExcept for an invalid signature, CInvalManifestExcept for everything else; SMF_OK returns.
void ThrowManifestError(ManifestContext* context, int code);

}  // namespace tolven

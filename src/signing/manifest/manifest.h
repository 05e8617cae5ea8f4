#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "report/code_names.h"

namespace tolven {

// The manifest library: a plain-text table of file names and digests with a detached signature behind it.
// Flat functions, nothing thrown. Every function takes the context first; a null context means the
// process-wide one. Unless said otherwise a function returns an SmfCode, 0 for success, and on failure
// appends a line to the context's error text. A context serves one thread at a time.
//
// A context is in write mode (the document is being built) until a verification or a parse puts it into read
// mode; ManifestClose or ManifestInit starts anew.
struct ManifestContext;

// Never null; freed by ManifestFreeContext, which also accepts null. Memory that runs out is std::bad_alloc
// here and SMF_ENOMEM everywhere else.
ManifestContext* ManifestNewContext();
void ManifestFreeContext(ManifestContext* context);

struct ManifestContextDeleter {
  void operator()(ManifestContext* context) const { ManifestFreeContext(context); }
};
using ManifestContextPtr = std::unique_ptr<ManifestContext, ManifestContextDeleter>;
inline ManifestContextPtr ManifestMakeContext() {
  return ManifestContextPtr(ManifestNewContext());
}

// --- process ---------------------------------------------------------------------------------------------

// Makes the mutex around the cryptographic library and reads QELMANIFEST_TRACELEVEL: above 0, trace lines go
// to "dev_qelmanifest.trc" in the start directory; otherwise no file is touched. Repeating it is harmless.
[[nodiscard]] int ManifestStartup();

// Where the run began, before it went elsewhere for its input: a relative SECUDIR, the PSE for TLS, the trace
// and a key that is a file by its bare name lie there. Without it they lie in the current directory. Changes
// the environment: not for several threads.
void ManifestSetStartDirectory(const std::string& directory);

// Unloads the cryptographic library, closes the trace file and the process-wide context. Contexts that are
// still alive may only be freed afterwards. Harmless when nothing was started.
void ManifestCleanup();

// --- context ---------------------------------------------------------------------------------------------

// Empties the context, sets the algorithms and loads the cryptographic library (once a process; a later call
// with another name keeps the first library). Null or empty arguments mean "libqelcrypto.so", "SHA256",
// "PKCS7-TSTAMP", "SHA256". SMF_EINIT before ManifestStartup, SMF_EDIGESTLIB for an unknown algorithm,
// SMF_EINVARG for an unknown format, SMF_ELIBRARY for a library that is missing, foreign or too old.
[[nodiscard]] int ManifestInit(ManifestContext* context, const char* libraryName,
                               const char* fileHashAlgorithm, const char* signatureFormat,
                               const char* signatureHashAlgorithm);

// Frees text, records and strings; the context is then as new.
void ManifestClose(ManifestContext* context);

// --- files -----------------------------------------------------------------------------------------------

// Write mode: starts the record of the next file. The name is stored as it is, 1 to 65535 bytes, without a
// zero byte. Names above 32767 bytes are written but no reader accepts them. Read mode: starts the check of
// the next file of that name: the n-th file of a name answers to the n-th record of that name.
// SMF_EFILENOTFOUND when there is no such record.
[[nodiscard]] int ManifestOpenFile(ManifestContext* context, const char* fileName, std::size_t nameLength);

// Feeds bytes of the open file into its digest; any number of calls, a length of 0 is allowed.
[[nodiscard]] int ManifestUpdateFile(ManifestContext* context, const void* data, std::size_t length);

// Write mode: appends the body line. Read mode: SMF_EDIGEST unless the digest is that of the record.
[[nodiscard]] int ManifestCloseFile(ManifestContext* context);

// Gives up the open file: no body line in write mode, no check in read mode (the record counts as met).
void ManifestAbandonFile(ManifestContext* context);

// Read mode: a file of that name goes by unchecked (not selected), so that a later one of the same name still
// answers to its own record. SMF_EFILENOTFOUND, without a text, when there is no record left for it: whether
// that is an error is the caller's to say.
[[nodiscard]] int ManifestPassFile(ManifestContext* context, const char* fileName, std::size_t nameLength);

// Read mode: every file is to be met again from the first (a second walk over the archive).
void ManifestRewindFiles(ManifestContext* context);

// Read mode: SMF_OK when every record was met, checked or passed by; otherwise SMF_EFILENOTFOUND, and the
// error text names the first record that was not.
[[nodiscard]] int ManifestCheckAllMet(ManifestContext* context);

// --- signing ---------------------------------------------------------------------------------------------

// Finishes and signs the document. signerName null or empty: "QELvalidation"; pse null or empty: the signer's
// name is the PSE. tsaUrl is needed exactly when the format is "PKCS7-TSTAMP", proxyUrl is optional. Failure
// is SMF_ESIGNATURE (also a failed time-stamp request) with the library's code kept, SMF_ELIBRARY,
// SMF_EENCODE.
[[nodiscard]] int ManifestLocalSign(ManifestContext* context, const char* signerName, const char* pse,
                                    const char* password, const char* tsaUrl, const char* proxyUrl);

// After a success: what may keep others from accepting the signature, one line; else empty.
const std::string& ManifestSigningWarning(const ManifestContext* context);

// The same, and copies the signed document (no terminating zero) to `output`; `written` receives its length.
[[nodiscard]] int ManifestSign(ManifestContext* context, const char* signerName, const char* pse,
                               const char* password, char* output, std::size_t outputSize,
                               std::size_t* written, const char* tsaUrl, const char* proxyUrl);

// The document as it stands: signed after ManifestLocalSign, as passed in after a verification. Valid until
// the context changes. ManifestGetSignedText is the part that the signature covers (through the empty line
// that ends the body), empty while that line is not written.
std::string_view ManifestGetText(const ManifestContext* context);
std::string_view ManifestGetSignedText(const ManifestContext* context);

// --- verification ----------------------------------------------------------------------------------------

// Bits of `flags`. Any other bit is SMF_EINVARG.
inline constexpr unsigned kManifestRequireCrl = 1;     // run the CRL step although no CRL bytes are passed
inline constexpr unsigned kManifestKeyIsOptional = 2;  // a signer that verifyKey does not know may still be
                                                       // one of "QELverify" or "QELvalidation"

// Takes a document over for a verification, so that it is not kept twice; the context is then otherwise
// empty.
void ManifestSetText(ManifestContext* context, std::string text);

// Checks the signature of the document of `length` bytes. It is copied, unless it is the context's own
// (ManifestSetText, ManifestGetText). Beside it a verification uses less than twice its size.
//   verifyKey  name or file of the only key to trust (its PSE may be given by `pse` instead); null or empty:
//              "QELverify", then "QELvalidation"
//   pse        null or empty: the PSE is named by the key
//   password   of that PSE, may be null
//   crl        PEM or DER bytes of one or several CRLs; empty: no CRL step
// Success is SMF_OK (the key "QELverify"), SMF_ESIGNATURE_EXTERNAL (24, verifyKey; category WARNING) or
// SMF_ESIGNATURE_VALIDATION (25, "QELvalidation"; category LOGGABLE_WARNING), and nothing else; the error
// text then holds the warnings. Every failure leaves category ERROR, but for an outdated or missing CRL and
// an unknown signature format, which leave WARNING. A failed check of the signature leaves no file records.
[[nodiscard]] int ManifestVerify(ManifestContext* context, const void* text, std::size_t length,
                                 const char* verifyKey, const char* pse, const char* password,
                                 std::span<const std::uint8_t> crl, unsigned flags);

// ManifestVerify, then every listed file is hashed on disk, relative to the current directory:
// SMF_EFILENOTFOUND or SMF_EDIGEST for the first that is missing, not regular, or different.
[[nodiscard]] int ManifestVerifyFiles(ManifestContext* context, const void* text, std::size_t length,
                                      const char* verifyKey, const char* pse, const char* password,
                                      std::span<const std::uint8_t> crl, unsigned flags);

// Chooses both; subject and issuer of the signer are kept only with returnNames.
[[nodiscard]] int ManifestVerifyEx(ManifestContext* context, const void* text, std::size_t length,
                                   const char* verifyKey, const char* pse, const char* password,
                                   std::span<const std::uint8_t> crl, unsigned flags, bool verifyFiles,
                                   bool returnNames);

// Parses without checking any signature: read mode, records available. For tests and for reading an old
// manifest that nobody asked to verify. Never a reason to trust the content.
[[nodiscard]] int ManifestParse(ManifestContext* context, const void* text, std::size_t length);

// Compares the context's manifest with an external manifest file; its signature is not looked at.
[[nodiscard]] int ManifestVerifyBody(ManifestContext* context, const char* manifestFileName);

// Same algorithm, same names, same digests; the n-th record of a name answers to the n-th of that name, the
// order of different names does not matter. Each context may be in either mode. Errors go to the internal
// one. Unlike elsewhere a null handle is an error (SMF_EINVARG).
[[nodiscard]] int ManifestCompare(ManifestContext* internalContext, const ManifestContext* externalContext);

// --- errors ----------------------------------------------------------------------------------------------

enum ManifestErrorCategory : int {
  MANIFEST_CATEGORY_NONE = 0,
  MANIFEST_CATEGORY_LOGGABLE_WARNING = 1,
  MANIFEST_CATEGORY_WARNING = 2,
  MANIFEST_CATEGORY_ERROR = 3
};

// The SMF code's name; "SMF_UNKNOWN_ERROR" for a number without one.
const char* ManifestErrorName(int code);
// The cryptographic library's name of its return code.
std::string ManifestDkvErrorName(int code);
int ManifestLastErrorCode(const ManifestContext* context);
int ManifestLastDkvErrorCode(const ManifestContext* context);
// All error lines so far, joined by LF; empty when none. Valid until the context changes.
const std::string& ManifestGetLastError(const ManifestContext* context);
// 0 whenever no error text is set.
int ManifestGetErrorCategory(const ManifestContext* context);
// "", "LOGGABLE_WARNING", "WARNING" or "ERROR".
const char* ManifestGetErrorCategoryName(const ManifestContext* context);

// --- what is known about the signature and the files ------------------------------------------------------

// "QEL software", "QEL validation", "External", "Unknown signer", or "NULL" when no manifest was read.
const char* ManifestSignatureName(const ManifestContext* context);
// The distinguished name; SMF_ERROR and an error text when verification did not get that far.
[[nodiscard]] int ManifestSignatureSubject(ManifestContext* context, std::string* subject);
[[nodiscard]] int ManifestSignatureIssuer(ManifestContext* context, std::string* issuer);
const std::string& ManifestSignatureAlgorithm(const ManifestContext* context);  // "SHA256"
const std::string& ManifestSignatureFormat(const ManifestContext* context);     // "PKCS7" or "PKCS7-TSTAMP"
const char* ManifestFileHashAlgorithm(const ManifestContext* context);   // "SHA256"; "" when none is set
const std::string& ManifestSigningTime(const ManifestContext* context);  // as the signer stated it, or empty
const std::string& ManifestTsaName(const ManifestContext* context);      // empty: no time stamp

// One line of the body, as it stands in the document.
struct ManifestFile {
  std::string_view hexDigest;  // digits of either case
  std::string_view name;       // stored name, exact bytes
};

// The lines of a body in their order. Four bytes a line: a document may list millions of files.
class ManifestFiles {
 public:
  ManifestFiles() = default;
  // `lines`: where each line starts in `text`; `digits`: how long its digest is.
  ManifestFiles(std::string_view text, std::span<const std::uint32_t> lines, std::size_t digits)
      : m_text(text), m_lines(lines), m_digits(digits) {}

  std::size_t size() const { return m_lines.size(); }
  bool empty() const { return m_lines.empty(); }
  ManifestFile operator[](std::size_t place) const;

 private:
  std::string_view m_text;
  std::span<const std::uint32_t> m_lines;
  std::size_t m_digits = 0;
};

// The first record of that name; SMF_EFILENOTFOUND and "File not found in manifest" when there is none. With
// partialSearch, when there is none, the first record whose name ends in "/" and that name; archives never
// ask so. The span is valid until the next call.
[[nodiscard]] int ManifestGetFile(ManifestContext* context, const char* name, std::size_t nameLength,
                                  std::span<const std::uint8_t>* digest, bool partialSearch = false);
// Length of that digest in hexadecimal characters; 0 when there is no such file.
std::size_t ManifestGetFileLength(const ManifestContext* context, const char* name, std::size_t nameLength);
// Number of body entries.
std::size_t ManifestGetFileCounter(const ManifestContext* context);
// All records in body order, valid until the context changes. SMF_EEOL and "No manifest files found" when
// empty.
[[nodiscard]] int ManifestGetFileList(ManifestContext* context, ManifestFiles* files);

}  // namespace tolven

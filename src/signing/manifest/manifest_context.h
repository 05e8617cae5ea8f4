#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "report/show_text.h"
#include "signing/crypto/dkv_table.h"
#include "signing/hash/hash.h"
#include "signing/manifest/manifest.h"
#include "signing/manifest/manifest_records.h"

namespace tolven {

inline constexpr std::string_view kFormatPkcs7 = "PKCS7";
inline constexpr std::string_view kFormatPkcs7Tstamp = "PKCS7-TSTAMP";

// The signers that are trusted without being named.
inline constexpr char kProductiveKey[] = "QELverify";
inline constexpr char kValidationKey[] = "QELvalidation";

enum class ManifestMode { kWrite, kRead };

// What an opaque handle stands for. Plain data: the functions of this folder keep it consistent.
struct ManifestContext {
  // The document; in write mode the signature block is missing until it is signed. headerLength counts the
  // separator line, bodyLength the body lines and the empty line that ends them; the signature block is the
  // rest. All are 0 while the document has no header.
  std::string text;
  std::size_t headerLength = 0;
  std::size_t bodyLength = 0;
  bool bodyEnded = false;  // the empty line that ends the body is in the text

  ManifestMode mode = ManifestMode::kWrite;
  DkvTable* library = nullptr;  // of the process; null before ManifestInit
  int hashAlgorithm = kHaDefaultAlgorithm;
  std::size_t digestLength = 32;  // bytes
  std::string signatureFormat{kFormatPkcs7Tstamp};
  std::string signatureAlgorithm = "SHA256";

  std::vector<std::uint32_t> lines;  // where each line of the body starts in the text
  FileIndex index;                   // over Files()

  // The file between ManifestOpenFile and ManifestCloseFile.
  bool fileOpen = false;
  std::string openName;      // write mode: its line is still to come
  std::size_t openLine = 0;  // read mode: the place of its line
  HaContext digest;
  std::array<std::uint8_t, kHaMaxDigestLength> foundDigest{};  // what ManifestGetFile handed out

  // Filled by verification.
  std::string signerName = "NULL";
  std::string signerId;
  std::string subject;
  std::string issuer;
  std::string signingTime;
  std::string tsaId;
  std::vector<std::uint8_t> signerCertificate;  // DER
  std::vector<std::uint8_t> signerIssuerCertificate;
  std::vector<std::uint8_t> tsaCertificate;
  std::vector<std::uint8_t> tsaIssuerCertificate;

  std::string signingWarning;

  std::string errorText;
  bool textLost = false;  // memory was short for a line of it
  int errorCode = SMF_OK;
  int dkvErrorCode = 0;
  int errorCategory = MANIFEST_CATEGORY_NONE;

  ManifestFiles Files() const { return {text, lines, 2 * digestLength}; }
  void ForgetFiles() {
    lines = {};
    index = {};
  }
  std::string_view SignedText() const {
    return bodyEnded ? std::string_view(text).substr(0, headerLength + bodyLength) : std::string_view();
  }
};

// A null handle stands for the process-wide context.
extern ManifestContext s_Manifest;
inline ManifestContext& ContextOf(ManifestContext* context) {
  return context == nullptr ? s_Manifest : *context;
}
inline const ManifestContext& ContextOf(const ManifestContext* context) {
  return context == nullptr ? s_Manifest : *context;
}

// Makes room for `more` bytes behind the text: 65535 bytes at first, then at least twice as much each time.
// False when there is no memory for it; the text is untouched.
[[nodiscard]] bool ExtendManifestBuffer(ManifestContext& context, std::size_t more);

// Forgets document, records, signature and errors; keeps library and algorithms.
void ResetDocument(ManifestContext& context);

// Readies the context's digest for the next file, in either mode.
[[nodiscard]] int BeginDigest(ManifestContext& context);

// Appends a line to the context's error text and returns `code`, so that a failing step is one statement.
//
// The category only ever rises, and 0 leaves it alone. The last error code is the first one that was
// reported, unless a later line comes with a category; a code of SMF_OK leaves it alone. When there is no
// memory for the text, the code and the category still count.
int AddError(ManifestContext& context, int code, int category, std::string_view text);

// The usual case: a step of a verification or of signing that failed. Category ERROR.
int Fail(ManifestContext& context, int code, std::string_view text);

// The wall of the flat interface: what runs out of memory inside becomes SMF_ENOMEM.
template <typename Function>
int Guarded(ManifestContext& context, Function&& function) {
  try {
    return function();
  } catch (const std::bad_alloc&) {
    context.errorCode = SMF_ENOMEM;
    context.errorCategory = MANIFEST_CATEGORY_ERROR;
    return SMF_ENOMEM;
  }
}

// An argument of the flat interface: null and "" both mean that there is none.
inline bool IsGiven(const char* text) {
  return text != nullptr && *text != '\0';
}

// before + name + after; names may hold any byte and any length that a document allows.
std::string NameText(std::string_view before, std::string_view name, std::string_view after);

}  // namespace tolven

#include <array>
#include <cstddef>
#include <cstdint>

#include "report/code_names.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/show_text.h"

// The two exceptions of signed archives: their texts are chosen by the codes of two libraries.
namespace tolven {
namespace {

// The messages about signatures and manifests: a lead line, a line break, and the library's own text.
constexpr std::size_t kMaxLead = 511;

enum class CodeNames { kNone, kDkv, kSmfAndDkv };

struct ManifestRow {
  int firstCode;  // of the manifest library
  int lastCode;
  int number;
  const char* text;
  CodeNames names;
};

constexpr const char* kManifestText = "TOLVEN: error in processing the signed manifest file";
constexpr const char* kSignatureText = "TOLVEN: error in signature verification";
constexpr const char* kDetail = "\nDetail: ";

constexpr std::array kManifestRows = {
    ManifestRow{SMF_EDIGEST, SMF_EDIGEST, kErrorDigest, "TOLVEN: invalid digest of archive file(s)",
                CodeNames::kNone},
    ManifestRow{SMF_ELIBRARY, SMF_ELIBRARY, kErrorCryptoLibrary,
                "TOLVEN: error in loading the cryptographic library", CodeNames::kNone},
    ManifestRow{SMF_EFILENOTFOUND, SMF_EFILENOTFOUND, kErrorFileNotSigned,
                "TOLVEN: at least one file was not signed", CodeNames::kNone},
    ManifestRow{SMF_EBODY_NOT_EQUAL, SMF_EBODY_NOT_EQUAL, kErrorManifestDiffers,
                "TOLVEN: external manifest differs to internal content", CodeNames::kNone},
    ManifestRow{SMF_ECRL, SMF_ECRL_OUTDATED, kErrorRevocation,
                "TOLVEN: error during certificate revocation check", CodeNames::kDkv},
    ManifestRow{SMF_ESIGNATURE_EXTERNAL, SMF_ESIGNATURE_VALIDATION, kErrorSignature,
                "TOLVEN: warning in signature verification", CodeNames::kNone},
    ManifestRow{SMF_ESIGNATURE_UNKNOWN, SMF_ESIGNATURE_UNKNOWN, kErrorSignature, kSignatureText,
                CodeNames::kDkv},
};
constexpr ManifestRow kOtherManifestRow{0, 0, kErrorManifest, kManifestText, CodeNames::kSmfAndDkv};

const ManifestRow& FindManifestRow(int manifestRc) {
  for (const ManifestRow& row : kManifestRows) {
    if (manifestRc >= row.firstCode && manifestRc <= row.lastCode) return row;
  }
  return kOtherManifestRow;
}

// The lead line is cut, never the detail: a name that the cryptographic library returns may be of any length.
std::string LeadLine(const ManifestRow& row, int manifestRc, int cryptoRc) {
  std::string lead = row.text;
  lead += " (error " + std::to_string(row.number) + "). ";
  if (row.names == CodeNames::kSmfAndDkv) lead += std::string("SMF-RC: ") + SmfCodeName(manifestRc) + " ";
  if (row.names != CodeNames::kNone) lead += "DKV-RC: " + ShowText(DkvCodeName(cryptoRc)) + " ";
  lead += kDetail;
  if (lead.size() > kMaxLead) lead.resize(kMaxLead);
  return lead;
}

std::string SignatureMessage(const std::string& detail, int rc) {
  return LeadLine(ManifestRow{0, 0, kErrorSignature, kSignatureText, CodeNames::kDkv}, 0, rc) + detail;
}

// Neither library reported a code of its own.
bool HasNoCode(int manifestRc, int cryptoRc) {
  return std::int64_t{manifestRc} + cryptoRc < 1;
}

std::string ManifestMessage(const std::string& detail, int manifestRc, int cryptoRc) {
  if (HasNoCode(manifestRc, cryptoRc)) return std::string(kManifestText) + ". " + kDetail + detail;
  return LeadLine(FindManifestRow(manifestRc), manifestRc, cryptoRc) + detail;
}

int ManifestNumber(int manifestRc, int cryptoRc) {
  return HasNoCode(manifestRc, cryptoRc) ? kErrorManifest : FindManifestRow(manifestRc).number;
}

}  // namespace

CInvalSignatureExcept::CInvalSignatureExcept(const std::string& detail, int rc)
    : CExcept(Complete{SignatureMessage(detail, rc), kErrorSignature}) {}

CInvalManifestExcept::CInvalManifestExcept(const std::string& detail, int manifestRc, int cryptoRc)
    : CExcept(Complete{ManifestMessage(detail, manifestRc, cryptoRc), ManifestNumber(manifestRc, cryptoRc)}) {
}

}  // namespace tolven

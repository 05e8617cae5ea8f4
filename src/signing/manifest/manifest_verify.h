#pragma once

#include <cstdint>
#include <span>

#include "signing/manifest/manifest_context.h"

namespace tolven {

inline constexpr char kSignerExternal[] = "External";
inline constexpr char kSignerValidation[] = "QEL validation";
inline constexpr char kSignerProductive[] = "QEL software";

// What a verification is asked to do; see ManifestVerify for the members.
struct VerifyRequest {
  const void* text;
  std::size_t length;
  const char* verifyKey;
  const char* pse;
  const char* password;
  std::span<const std::uint8_t> crl;
  unsigned flags;
  bool verifyFiles;
  bool returnNames;
};

// All of it, in order; each step stops at the first error. SMF_OK, 24 and 25 are success.
[[nodiscard]] int ManifestVerifyInfo(ManifestContext& context, const VerifyRequest& request);

// The signer becomes "External", with its text and category WARNING.
void NoteExternalKey(ManifestContext& context);

// Its longer steps. Each returns SMF_OK or the code of the failure that it recorded.

// Checks the decoded signature over the signed text, and notes whose key it was and what the signature says.
[[nodiscard]] int VerifySignature(ManifestContext& context, const VerifyRequest& request,
                                  std::span<const std::uint8_t> signature);

// Looks the signer's certificate up in the given CRLs, then the time stamp authority's when there is one.
[[nodiscard]] int CheckCrl(ManifestContext& context, std::span<const std::uint8_t> crlFile);

// Hashes every listed file on disk and compares.
[[nodiscard]] int CheckLocalFiles(ManifestContext& context);

}  // namespace tolven

#pragma once

#include <cstdint>
#include <span>

#include "signing/manifest/manifest_context.h"

namespace tolven {

// What a verification asks of a signature: whose it is, and whether its certificates were revoked.
// The checks return SMF_OK or the code of the failure that they recorded.

inline constexpr char kSignerExternal[] = "External";
inline constexpr char kSignerValidation[] = "QEL validation";
inline constexpr char kSignerProductive[] = "QEL software";

// The key that the caller trusts, see ManifestVerify; without a name, the keys that need no naming.
struct TrustedKey {
  const char* name;
  const char* pse;
  const char* password;
  bool isOptional;  // a signer that it does not know may be one of those, too
};

// The signer becomes "External", with its text and category WARNING.
void NoteExternalKey(ManifestContext& context);

// Checks the decoded signature over the signed text, and notes whose key it was and what the signature says.
[[nodiscard]] int CheckSigner(ManifestContext& context, const TrustedKey& key,
                              std::span<const std::uint8_t> signature);

// Looks the signer's certificate up in the given CRLs, then the time stamp authority's when there is one.
[[nodiscard]] int CheckCrl(ManifestContext& context, std::span<const std::uint8_t> crlFile);

}  // namespace tolven

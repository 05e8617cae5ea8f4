#pragma once

#include <string_view>

#include "signing/manifest/manifest_context.h"

namespace tolven {

// Write mode: the document as it grows. What can fail returns an SmfCode and records why.

// Lines 1 to 6, unless they are there already.
[[nodiscard]] int WriteManifestHeader(ManifestContext& context);

// Readies the digest of the context for the next file, in either mode.
[[nodiscard]] int BeginDigest(ManifestContext& context);

// A record whose digest is still to come; it becomes the open file.
void BeginRecord(ManifestContext& context, std::string_view name);

// Takes the finished digest over into the open record and appends the body line. On failure the record is
// gone.
[[nodiscard]] int FinishRecord(ManifestContext& context);

// Takes the last record away again.
void DropRecord(ManifestContext& context);

}  // namespace tolven

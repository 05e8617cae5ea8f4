#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "signing/manifest/manifest_context.h"

namespace tolven {

// Gets each body line: the name (1 to 32767 bytes, none of them zero) and the digest, of the length that the
// header's algorithm has. Both last for the call. Anything but SMF_OK ends the parse with that code.
using BodyLineSink = std::function<int(std::string_view name, std::span<const std::uint8_t> digest)>;

// Reads context.text through the end of its body: sets the algorithms, format, header and body length. What
// lies behind the body is not looked at. SMF_OK, the sink's code, SMF_EINTERNAL for a first line that is not
// the magic, SMF_EDIGESTLIB for an unknown algorithm (recorded), SMF_EPARSE for anything else.
[[nodiscard]] int ParseManifest(ManifestContext& context, const BodyLineSink& sink);

// ParseManifest with the lines becoming the records of the context, which is in read mode afterwards.
[[nodiscard]] int ParseIntoRecords(ManifestContext& context);

}  // namespace tolven

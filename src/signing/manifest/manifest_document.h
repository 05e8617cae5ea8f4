#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "signing/manifest/manifest_context.h"

namespace tolven {

// The manifest document, once for its writer and its reader. Lines end with one LF; every text here goes into
// signed documents: do not change them.
//
//   QEL-MANIFEST
//   Version: 1.0
//   Hash: SHA256
//   Signature: PKCS7-TSTAMP          a comma and the hash of the signature follow when it differs
//   Body: Digest | Name-Length | Name
//                                    the empty line that separates header and body
//   <digest in hex> <length in 4 hex digits> <name>
//                                    the empty line that ends the body; the signature covers all up to here
//   -----BEGIN SIGNATURE-----
//   <base64 in lines of 64>
//   -----END SIGNATURE-----          without a LF behind it

// The longest name that the four digits can say; readers take the number as signed and stop at 32767.
inline constexpr std::size_t kMaxWrittenName = 65535;

// --- reading ---

// Gets each body line: the name (1 to 32767 bytes, none of them zero) and the digest, of the length that the
// header's algorithm has. Both last for the call. Anything but SMF_OK ends the parse with that code.
using BodyLineSink = std::function<int(std::string_view name, std::span<const std::uint8_t> digest)>;

// Reads context.text through the end of its body: sets the algorithms, format, header and body length. What
// lies behind the body is not looked at. SMF_OK, the sink's code, SMF_EINTERNAL for a first line that is not
// the magic, SMF_EDIGESTLIB for an unknown algorithm (recorded), SMF_EPARSE for anything else.
[[nodiscard]] int ParseManifest(ManifestContext& context, const BodyLineSink& sink);

// The same without anybody who gets the lines: whether the document is well formed, and how many files it
// lists. Takes no memory. The context is in read mode afterwards, without records.
[[nodiscard]] int CheckManifest(ManifestContext& context, std::size_t& count);

// The lines of a document that CheckManifest counted become the records of the context.
[[nodiscard]] int CollectRecords(ManifestContext& context, std::size_t count);

// Both, for a document that nobody has to trust.
[[nodiscard]] int ParseIntoRecords(ManifestContext& context);

// The signature behind the body of a document that was read.
[[nodiscard]] int ReadSignatureBlock(ManifestContext& context, std::vector<std::uint8_t>& signature);

// --- writing: the document as it grows. What can fail returns an SmfCode and records why. ---

// Lines 1 to 6, unless they are there already.
[[nodiscard]] int WriteManifestHeader(ManifestContext& context);

// The line of the open file, whose digest the context has just finished. No error is recorded; false when
// there is no room, and the document is as before.
[[nodiscard]] bool AppendBodyLine(ManifestContext& context);

// The header, when no file was ever opened, and the empty line that ends the body.
[[nodiscard]] int EndBody(ManifestContext& context);
// Signing failed: files may follow and another attempt be made.
void ReopenBody(ManifestContext& context);

[[nodiscard]] int AppendSignatureBlock(ManifestContext& context, std::span<const std::uint8_t> signature);

}  // namespace tolven

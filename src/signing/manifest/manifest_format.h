#pragma once

#include <cstddef>
#include <string_view>

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
inline constexpr std::string_view kMagicLine = "QEL-MANIFEST";
inline constexpr std::string_view kVersionKey = "Version";
inline constexpr std::string_view kVersionValue = "1.0";
inline constexpr std::string_view kHashKey = "Hash";
inline constexpr std::string_view kSignatureKey = "Signature";
inline constexpr std::string_view kBodyKey = "Body";
inline constexpr std::string_view kBodyTitle = "Body: Digest | Name-Length | Name";

inline constexpr std::size_t kNameLengthDigits = 4;
inline constexpr std::size_t kMaxWrittenName = 65535;  // what the four digits can say
inline constexpr int kMaxReadName = 32767;             // readers take the number as signed
inline constexpr std::size_t kMaxSignatureAlgorithm = 8;

inline constexpr std::string_view kSignatureBegin = "-----BEGIN SIGNATURE-----\n";
inline constexpr std::string_view kSignatureEnd = "\n-----END SIGNATURE-----";
inline constexpr std::size_t kSignatureLine = 64;
inline constexpr int kSignatureBase64Mode = 3;  // padded, in lines

// A reader goes by these places and does not search for the markers.
static_assert(kSignatureBegin.size() == 26 && kSignatureEnd.size() == 24);
inline constexpr std::size_t kSignatureFrame = kSignatureBegin.size() + kSignatureEnd.size();

}  // namespace tolven

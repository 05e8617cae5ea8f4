#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "signing/manifest/manifest.h"

namespace tolven::test {

using NamedContent = std::pair<std::string, std::string>;

// Puts files into a context in write mode.
inline void AddFiles(ManifestContext* context, const std::vector<NamedContent>& files) {
  for (const auto& [name, content] : files) {
    ASSERT_EQ(ManifestOpenFile(context, name.data(), name.size()), SMF_OK) << ManifestGetLastError(context);
    ASSERT_EQ(ManifestUpdateFile(context, content.data(), content.size()), SMF_OK);
    ASSERT_EQ(ManifestCloseFile(context), SMF_OK);
  }
}

// A document of one file "a b" with the content "abc", unsigned, spelled out.
inline const std::string kHeader =
    "QEL-MANIFEST\nVersion: 1.0\nHash: SHA256\nSignature: PKCS7-TSTAMP\nBody: Digest | Name-Length | "
    "Name\n\n";
inline const std::string kAbcDigest = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
inline const std::string kAbcLine = kAbcDigest + " 0003 a b\n";
inline const std::string kSmallDocument = kHeader + kAbcLine + "\n";

// A block around any base64 text.
inline std::string Block(std::string_view base64) {
  return std::string("-----BEGIN SIGNATURE-----\n").append(base64).append("\n-----END SIGNATURE-----");
}

inline int Parse(ManifestContext* context, std::string_view text) {
  return ManifestParse(context, text.data(), text.size());
}

}  // namespace tolven::test

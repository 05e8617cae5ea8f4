// Manifest documents: what parses is written again from its records and must give the same bytes; nothing
// verifies without a cryptographic library.
#include <cstdio>

#include "fuzz/support.h"
#include "signing/hash/hash.h"
#include "signing/manifest/manifest.h"

namespace {

using tolven::fuzz::Require;

// Digits of either case are accepted, lower-case ones are written.
std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::string BodyAgain(std::span<const tolven::ManifestFile> files) {
  std::string body;
  for (const tolven::ManifestFile& file : files) {
    std::string digest(2 * file.digest.size() + 1, '\0');
    Require(tolven::haHexEncodeBlob(file.digest.data(), file.digest.size(), digest.data(), digest.size(),
                                    nullptr) == 0);
    digest.back() = ' ';
    char length[8];
    std::snprintf(length, sizeof length, "%04zx ", file.name.size());
    body.append(digest).append(length).append(file.name).append("\n");
  }
  return body + "\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolven;
  const ManifestContextPtr context = ManifestMakeContext();
  const int parsed = ManifestParse(context.get(), data, size);
  if (parsed == SMF_OK) {
    const std::string_view signedText = ManifestGetSignedText(context.get());
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Require(text.starts_with(signedText) && signedText.starts_with("QEL-MANIFEST\n"));
    std::span<const ManifestFile> files;
    const int listed = ManifestGetFileList(context.get(), &files);
    Require((listed == SMF_OK) == (ManifestGetFileCounter(context.get()) != 0));
    Require(Lower(std::string(signedText)).ends_with(Lower(BodyAgain(files))));
    Require(ManifestCompare(context.get(), context.get()) == SMF_OK);
  }
  const int verified = ManifestVerify(context.get(), data, size, nullptr, nullptr, nullptr, {}, 0);
  Require(verified != SMF_OK && verified != SMF_ESIGNATURE_EXTERNAL && verified != SMF_ESIGNATURE_VALIDATION);
  Require(ManifestGetFileCounter(context.get()) == 0);
  return 0;
}

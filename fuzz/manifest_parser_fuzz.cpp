// Manifest documents: what parses is written again from its records and must give the same bytes; nothing
// verifies without a cryptographic library.
#include <cstdio>

#include "fuzz/support.h"
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

std::string BodyAgain(const tolven::ManifestFiles& files) {
  std::string body;
  for (std::size_t i = 0; i < files.size(); ++i) {
    char length[8];
    std::snprintf(length, sizeof length, " %04zx ", files[i].name.size());
    body.append(files[i].hexDigest).append(length).append(files[i].name).append("\n");
  }
  return body + "\n";
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  const Bytes bytes = input.Rest();
  const ManifestContextPtr context = ManifestMakeContext();
  const int parsed = ManifestParse(context.get(), bytes.data(), bytes.size());
  if (parsed == SMF_OK) {
    const std::string_view signedText = ManifestGetSignedText(context.get());
    const std::string text = input.Text();
    Require(text.starts_with(signedText) && signedText.starts_with("QEL-MANIFEST\n"));
    ManifestFiles files;
    const int listed = ManifestGetFileList(context.get(), &files);
    Require((listed == SMF_OK) == (ManifestGetFileCounter(context.get()) != 0));
    Require(Lower(std::string(signedText)).ends_with(Lower(BodyAgain(files))));
    Require(ManifestCompare(context.get(), context.get()) == SMF_OK);
  }
  const int verified =
      ManifestVerify(context.get(), bytes.data(), bytes.size(), nullptr, nullptr, nullptr, {}, 0);
  Require(verified != SMF_OK && verified != SMF_ESIGNATURE_EXTERNAL && verified != SMF_ESIGNATURE_VALIDATION);
  Require(ManifestGetFileCounter(context.get()) == 0);
}

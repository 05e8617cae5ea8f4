#include "signing/manifest/manifest_writer.h"

#include "signing/manifest/manifest_errors.h"
#include "signing/manifest/manifest_format.h"

namespace tolven {
namespace {

void AddHeaderLine(std::string& header, std::string_view key, std::string_view value) {
  header.append(key).append(": ").append(value).append("\n");
}

std::string MakeHeader(const ManifestContext& context) {
  const std::string_view hashName = haGetAlgorithmName(context.hashAlgorithm);
  std::string signature = context.signatureFormat;
  if (context.signatureAlgorithm != hashName) signature.append(",").append(context.signatureAlgorithm);
  std::string header;
  header.append(kMagicLine).append("\n");
  AddHeaderLine(header, kVersionKey, kVersionValue);
  AddHeaderLine(header, kHashKey, hashName);
  AddHeaderLine(header, kSignatureKey, signature);
  return header.append(kBodyTitle).append("\n\n");
}

// Digest, name length and name of a finished record, as one line.
bool AppendBodyLine(ManifestContext& context, const ManifestFile& file) {
  const std::size_t lineLength = file.hexDigestLength + 1 + kNameLengthDigits + 1 + file.name.size() + 1;
  if (!ExtendManifestBuffer(context, lineLength)) return false;
  std::string& text = context.text;
  const std::size_t start = text.size();
  // The encoder ends its text with a zero byte, in the place of the blank.
  text.resize(start + file.hexDigestLength + 1);
  if (haHexEncodeDigest(&context.digest, text.data() + start, file.hexDigestLength + 1, nullptr) != HA_OK) {
    text.resize(start);
    return false;
  }
  text.back() = ' ';
  const auto length = static_cast<unsigned>(file.name.size());
  text.append(FormatText("%04x ", length)).append(file.name).append("\n");
  context.bodyLength += lineLength;
  return true;
}

}  // namespace

int WriteManifestHeader(ManifestContext& context) {
  if (context.headerLength != 0) return SMF_OK;
  const std::string header = MakeHeader(context);
  if (!ExtendManifestBuffer(context, header.size())) {
    return Fail(context, SMF_EPARSE, "The manifest buffer could not be extended");
  }
  context.text.append(header);
  context.headerLength = header.size();
  return SMF_OK;
}

int BeginDigest(ManifestContext& context) {
  const int result = haInit(&context.digest, context.hashAlgorithm);
  if (result == HA_OK) return SMF_OK;
  return Fail(context, SMF_EDIGESTLIB,
              FormatText("Error in haInit %d, Hash AlgId %d", result, context.hashAlgorithm));
}

void BeginRecord(ManifestContext& context, std::string_view name) {
  context.index.Invalidate();
  context.files.push_back({std::string(name), {}, 2 * context.digestLength});
  context.openFile = context.files.size() - 1;
}

int FinishRecord(ManifestContext& context) {
  ManifestFile& file = context.files[context.openFile];
  const auto digest = context.digest.digest.begin();
  file.digest.assign(digest, digest + static_cast<std::ptrdiff_t>(context.digest.digestLength));
  if (AppendBodyLine(context, file)) return SMF_OK;
  const std::string text = NameText("Write entry in manifest for file >", file.name, "< failed");
  DropRecord(context);
  return Fail(context, SMF_EPARSE, text);
}

void DropRecord(ManifestContext& context) {
  context.files.pop_back();
  context.index.Invalidate();
}

}  // namespace tolven

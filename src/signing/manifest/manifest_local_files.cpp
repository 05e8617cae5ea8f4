// Step 9 of a verification: the listed files as they lie on this machine.

#include <algorithm>
#include <cstring>

#include "fileio/local_file.h"
#include "signing/manifest/manifest_errors.h"
#include "signing/manifest/manifest_parser.h"
#include "signing/manifest/manifest_verify.h"
#include "signing/manifest/manifest_writer.h"

namespace tolven {
namespace {

constexpr std::size_t kReadSize = 65536;

int NotReadable(ManifestContext& context, std::string_view name, int error) {
  const std::string why = FormatText("< was not found. System error code %d. %s", error, strerror(error));
  return Fail(context, SMF_EFILENOTFOUND, NameText("Local File >", name, why));
}

int HashFile(ManifestContext& context, std::string_view name, std::span<std::uint8_t> buffer) {
  const LocalFile file(std::string(name), LocalFile::Links::kRefuse);
  if (!file.IsOpen()) return NotReadable(context, name, file.Error());
  if (const int result = BeginDigest(context); result != SMF_OK) return result;
  for (std::size_t done = buffer.size(); done == buffer.size();) {
    if (const int error = file.Read(buffer, done); error != 0) return NotReadable(context, name, error);
    if (const int result = haUpdate(&context.digest, buffer.data(), done); result != HA_OK) {
      return Fail(context, SMF_EDIGESTLIB, FormatText("Error in haUpdate %d", result));
    }
  }
  const int result = haFinal(&context.digest);
  return result == HA_OK ? SMF_OK : Fail(context, SMF_EDIGESTLIB, FormatText("Error in haFinal %d", result));
}

}  // namespace

int CheckLocalFiles(ManifestContext& context) {
  std::vector<std::uint8_t> buffer(kReadSize);
  return ParseManifest(context, [&](std::string_view name, std::span<const std::uint8_t> digest) -> int {
    if (const int result = HashFile(context, name, buffer); result != SMF_OK) return result;
    const std::span<const std::uint8_t> found(context.digest.digest.data(), context.digest.digestLength);
    if (std::equal(digest.begin(), digest.end(), found.begin(), found.end())) return SMF_OK;
    return Fail(context, SMF_EDIGEST, NameText("Local File >", name, "< digest is different to manifest"));
  });
}

}  // namespace tolven

// The files that pass by, in either mode: into the document that is being built, or against the one that was
// read.

#include <algorithm>

#include "signing/manifest/manifest_errors.h"
#include "signing/manifest/manifest_format.h"
#include "signing/manifest/manifest_lookup.h"
#include "signing/manifest/manifest_writer.h"

namespace tolven {
namespace {

// Null or empty names, and names that no document can hold.
int CheckName(ManifestContext& context, const char* name, std::size_t length) {
  if (name == nullptr || length == 0)
    return Fail(context, SMF_EINVARG, "Invalid empty input file name passed");
  if (length > kMaxWrittenName || std::string_view(name, length).find('\0') != std::string_view::npos) {
    return Fail(context, SMF_EINVARG, "Invalid input file name passed");
  }
  return SMF_OK;
}

int OpenForWriting(ManifestContext& context, std::string_view name) {
  if (context.bodyEnded) return Fail(context, SMF_ERROR, "Manifest context is already signed");
  if (const int result = WriteManifestHeader(context); result != SMF_OK) return result;
  if (const int result = BeginDigest(context); result != SMF_OK) return result;
  BeginRecord(context, name);
  context.fileOpen = true;
  return SMF_OK;
}

int OpenForChecking(ManifestContext& context, std::string_view name) {
  const std::size_t place = context.index.Meet(context.files, name);
  if (place == FileIndex::kNone) return Fail(context, SMF_EFILENOTFOUND, NotFoundText(name, false));
  if (const int result = BeginDigest(context); result != SMF_OK) return result;
  context.openFile = place;
  context.fileOpen = true;
  return SMF_OK;
}

int FinishCheck(ManifestContext& context) {
  const ManifestFile& file = context.files[context.openFile];
  const std::span<const std::uint8_t> digest(context.digest.digest.data(), context.digest.digestLength);
  if (std::equal(file.digest.begin(), file.digest.end(), digest.begin(), digest.end())) return SMF_OK;
  return Fail(context, SMF_EDIGEST, NameText("File >", file.name, "< digest is different to manifest"));
}

}  // namespace

int ManifestOpenFile(ManifestContext* context, const char* fileName, std::size_t nameLength) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    if (const int result = CheckName(c, fileName, nameLength); result != SMF_OK) return result;
    if (c.fileOpen) return Fail(c, SMF_EINVARG, "A manifest file is already open");
    const std::string_view name(fileName, nameLength);
    return c.mode == ManifestMode::kWrite ? OpenForWriting(c, name) : OpenForChecking(c, name);
  });
}

int ManifestUpdateFile(ManifestContext* context, const void* data, std::size_t length) {
  ManifestContext& c = ContextOf(context);
  if (!c.fileOpen) return Fail(c, SMF_EINVARG, "Manifest entry null");
  const int result = haUpdate(&c.digest, data, length);
  if (result == HA_OK) return SMF_OK;
  return Guarded(c, [&] { return Fail(c, SMF_EDIGESTLIB, FormatText("Error in haUpdate %d", result)); });
}

int ManifestCloseFile(ManifestContext* context) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    if (!c.fileOpen) return Fail(c, SMF_EINVARG, "Manifest entry null");
    if (const int result = haFinal(&c.digest); result != HA_OK) {
      ManifestAbandonFile(&c);
      return Fail(c, SMF_EDIGESTLIB, FormatText("Error in haFinal %d", result));
    }
    c.fileOpen = false;
    return c.mode == ManifestMode::kWrite ? FinishRecord(c) : FinishCheck(c);
  });
}

void ManifestAbandonFile(ManifestContext* context) {
  ManifestContext& c = ContextOf(context);
  if (!c.fileOpen) return;
  c.fileOpen = false;
  if (c.mode == ManifestMode::kWrite) DropRecord(c);
}

int ManifestPassFile(ManifestContext* context, const char* fileName, std::size_t nameLength) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    if (const int result = CheckName(c, fileName, nameLength); result != SMF_OK) return result;
    const std::string_view name(fileName, nameLength);
    if (c.index.Meet(c.files, name) != FileIndex::kNone) return SMF_OK;
    return Fail(c, SMF_EFILENOTFOUND, NotFoundText(name, false));
  });
}

void ManifestRewindFiles(ManifestContext* context) {
  ContextOf(context).index.ForgetMet();
}

int ManifestCheckAllMet(ManifestContext* context) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    const std::size_t unmet = c.index.FirstUnmet(c.files);
    if (unmet == FileIndex::kNone) return SMF_OK;
    return Fail(c, SMF_EFILENOTFOUND,
                NameText("File >", c.files[unmet].name, "< of the manifest was not found"));
  });
}

}  // namespace tolven

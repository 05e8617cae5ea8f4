#include "signing/manifest/manifest_lookup.h"

#include "signing/crypto/trace.h"
#include "signing/manifest/manifest_errors.h"

namespace tolven {
namespace {

// Names as the trace shows them: their own length bounds them, not a zero byte.
int TraceLength(std::string_view name) {
  return static_cast<int>(name.size());
}

bool IsTrailingPart(std::string_view name, std::string_view wanted) {
  return name.size() > wanted.size() && name.ends_with(wanted) &&
         name[name.size() - wanted.size() - 1] == '/';
}

}  // namespace

std::string NotFoundText(std::string_view name, bool partialSearch) {
  return NameText(partialSearch ? "File(partial search)>" : "File>", name, "< was not found in manifest");
}

const ManifestFile* FindFileInBody(const ManifestContext& context, std::string_view name, std::size_t n,
                                   bool partialSearch) {
  const std::size_t place = context.index.Find(context.files, name, n);
  if (place != FileIndex::kNone) {
    ManifestTrace("SMF: Hash found for entry >%*.*s< \n", TraceLength(name), TraceLength(name), name.data());
    return &context.files[place];
  }
  if (!partialSearch) return nullptr;
  for (const ManifestFile& file : context.files) {
    if (!IsTrailingPart(file.name, name)) continue;
    ManifestTrace("SMF: Hash found for (partial search) entry >%*.*s< \n", TraceLength(name),
                  TraceLength(name), name.data());
    return &file;
  }
  return nullptr;
}

int ManifestGetFile(ManifestContext* context, const char* name, std::size_t nameLength,
                    std::span<const std::uint8_t>* digest, bool partialSearch) {
  ManifestContext& c = ContextOf(context);
  *digest = {};
  return Guarded(c, [&]() -> int {
    if (name == nullptr || nameLength == 0)
      return Fail(c, SMF_EINVARG, "Invalid empty input file name passed");
    const ManifestFile* file = FindFileInBody(c, {name, nameLength}, 0, partialSearch);
    if (file == nullptr) {
      AddError(c, SMF_EFILENOTFOUND, MANIFEST_CATEGORY_NONE, NotFoundText({name, nameLength}, partialSearch));
      return AddError(c, SMF_EFILENOTFOUND, MANIFEST_CATEGORY_NONE, "File not found in manifest");
    }
    *digest = file->digest;
    return SMF_OK;
  });
}

std::size_t ManifestGetFileLength(const ManifestContext* context, const char* name, std::size_t nameLength) {
  if (name == nullptr) return 0;
  const ManifestFile* file = FindFileInBody(ContextOf(context), {name, nameLength}, 0, false);
  return file == nullptr ? 0 : file->hexDigestLength;
}

std::size_t ManifestGetFileCounter(const ManifestContext* context) {
  return ContextOf(context).files.size();
}

int ManifestGetFileList(ManifestContext* context, std::span<const ManifestFile>* files) {
  ManifestContext& c = ContextOf(context);
  *files = c.files;
  if (!c.files.empty()) return SMF_OK;
  return AddError(c, SMF_EEOL, MANIFEST_CATEGORY_NONE, "No manifest files found");
}

}  // namespace tolven

#include <cerrno>
#include <cstring>
#include <map>

#include "fileio/local_file.h"
#include "signing/manifest/manifest_errors.h"
#include "signing/manifest/manifest_lookup.h"
#include "signing/manifest/manifest_parser.h"

namespace tolven {
namespace {

constexpr char kNotEqual[] = "The manifest content is not equal";

// Counts the body as it will be: a document that is still being built lacks the empty line.
std::size_t FinalBodyLength(const ManifestContext& context) {
  return context.bodyLength + (context.bodyEnded ? 0 : 1);
}

int DifferenceOf(ManifestContext& internal, std::string_view text) {
  Fail(internal, SMF_EBODY_NOT_EQUAL, text);
  return Fail(internal, SMF_EBODY_NOT_EQUAL, kNotEqual);
}

// Every external record must have its like among the internal ones, the n-th of a name the n-th of that name.
int CompareRecords(ManifestContext& internal, const ManifestContext& external) {
  std::map<std::string_view, std::size_t> seen;
  for (const ManifestFile& file : external.files) {
    const ManifestFile* found = FindFileInBody(internal, file.name, seen[file.name]++, false);
    if (found == nullptr) {
      return Fail(internal, SMF_EFILENOTFOUND,
                  NameText("External file >", file.name, "< was not found in the internal manifest"));
    }
    if (found->digest != file.digest) {
      return Fail(
          internal, SMF_EDIGEST,
          NameText("External manifest file >", file.name, "< digest is different to internal manifest"));
    }
  }
  return SMF_OK;
}

int Compare(ManifestContext& internal, const ManifestContext& external) {
  if (internal.hashAlgorithm != external.hashAlgorithm) {
    return DifferenceOf(internal, "The file hash algorithms are not equal");
  }
  const std::size_t internalLength = FinalBodyLength(internal);
  const std::size_t externalLength = FinalBodyLength(external);
  if (internalLength != externalLength) {
    return DifferenceOf(
        internal, FormatText("Incompatible content length of the internal(%zu) and external(%zu) manifest",
                             internalLength, externalLength));
  }
  if (external.fileOpen || internal.fileOpen) {
    return DifferenceOf(internal, "The external manifest body could not be read");
  }
  if (const int result = CompareRecords(internal, external); result != SMF_OK) return result;
  if (internal.files.size() != external.files.size()) {
    return DifferenceOf(internal,
                        FormatText("Different size of files in the internal(%zu) and external(%zu) manifest",
                                   internal.files.size(), external.files.size()));
  }
  return SMF_OK;
}

}  // namespace

int ManifestCompare(ManifestContext* internalContext, const ManifestContext* externalContext) {
  if (internalContext == nullptr || externalContext == nullptr) {
    ManifestContext& told = ContextOf(internalContext);
    return Fail(told, SMF_EINVARG, "Invalid null argument passed for the manifest handle");
  }
  return Guarded(*internalContext, [&] { return Compare(*internalContext, *externalContext); });
}

int ManifestVerifyBody(ManifestContext* context, const char* manifestFileName) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    if (manifestFileName == nullptr || *manifestFileName == '\0') {
      return Fail(c, SMF_EINVARG, "Invalid null argument passed for the manifest file name");
    }
    ManifestContext external;
    const LocalFile file(manifestFileName, LocalFile::Links::kFollow);
    const int error = file.IsOpen() ? file.ReadAll(external.text) : file.Error();
    if (error == ENOMEM) {
      return Fail(c, SMF_ENOMEM, "Not able to allocate memory for the buffer of external manifest file");
    }
    if (error != 0) {
      const std::string why =
          FormatText("< could not be opened. System error code >%d< >%s<", error, strerror(error));
      return Fail(c, SMF_EFILENOTFOUND, NameText("External manifest file >", manifestFileName, why));
    }
    if (ParseIntoRecords(external) != SMF_OK) {
      return Fail(c, SMF_EPARSE, "Error while parsing the external manifest");
    }
    return ManifestCompare(&c, &external);
  });
}

}  // namespace tolven

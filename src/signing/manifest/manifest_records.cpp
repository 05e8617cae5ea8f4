#include "signing/manifest/manifest_records.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <numeric>

#include "fileio/local_file.h"
#include "signing/crypto/trace.h"
#include "signing/manifest/manifest_context.h"
#include "signing/manifest/manifest_document.h"

namespace tolven {

// --- the index ---

void FileIndex::Invalidate() {
  m_order.clear();
  m_met.clear();
}

void FileIndex::Sort(std::span<const ManifestFile> files) const {
  if (m_order.size() == files.size()) return;
  m_order.resize(files.size());
  std::iota(m_order.begin(), m_order.end(), std::size_t{0});
  std::sort(m_order.begin(), m_order.end(), [files](std::size_t a, std::size_t b) {
    const int order = files[a].name.compare(files[b].name);
    return order != 0 ? order < 0 : a < b;
  });
}

std::size_t FileIndex::FirstOf(std::span<const ManifestFile> files, std::string_view name) const {
  Sort(files);
  const auto first = std::lower_bound(m_order.begin(), m_order.end(), name,
                                      [files](std::size_t place, std::string_view wanted) {
                                        return std::string_view(files[place].name) < wanted;
                                      });
  return static_cast<std::size_t>(first - m_order.begin());
}

std::size_t FileIndex::Find(std::span<const ManifestFile> files, std::string_view name, std::size_t n) const {
  const std::size_t first = FirstOf(files, name);
  if (n >= m_order.size() - first || files[m_order[first + n]].name != name) return kNone;
  return m_order[first + n];
}

std::size_t FileIndex::Meet(std::span<const ManifestFile> files, std::string_view name) {
  const std::size_t first = FirstOf(files, name);
  m_met.resize(m_order.size());
  const std::size_t n = first < m_met.size() ? m_met[first] : 0;
  const std::size_t place = Find(files, name, n);
  if (place != kNone) ++m_met[first];
  return place;
}

void FileIndex::ForgetMet() {
  m_met.clear();
}

std::size_t FileIndex::FirstUnmet(std::span<const ManifestFile> files) const {
  Sort(files);
  std::size_t unmet = kNone;
  for (std::size_t first = 0; first < m_order.size();) {
    std::size_t end = first;
    while (end < m_order.size() && files[m_order[end]].name == files[m_order[first]].name) ++end;
    const std::size_t met = first < m_met.size() ? m_met[first] : 0;
    if (met < end - first) unmet = std::min(unmet, m_order[first + met]);
    first = end;
  }
  return unmet;
}

// --- looking up ---

namespace {

// Names as the trace shows them: their own length bounds them, not a zero byte.
int TraceLength(std::string_view name) {
  return static_cast<int>(name.size());
}

bool IsTrailingPart(std::string_view name, std::string_view wanted) {
  return name.size() > wanted.size() && name.ends_with(wanted) &&
         name[name.size() - wanted.size() - 1] == '/';
}

std::string NotFoundText(std::string_view name, bool partialSearch) {
  return NameText(partialSearch ? "File(partial search)>" : "File>", name, "< was not found in manifest");
}

// The n-th (from 0) record of exactly that name. With partialSearch, when there is none, the first record
// whose name ends in "/" and the wanted one. Null when not found; nothing is recorded.
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

}  // namespace

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

// --- files that pass by: into the document that is being built, or against the one that was read ---

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

// A record whose digest is still to come; it becomes the open file.
void BeginRecord(ManifestContext& context, std::string_view name) {
  context.index.Invalidate();
  context.files.push_back({std::string(name), {}, 2 * context.digestLength});
  context.openFile = context.files.size() - 1;
}

// Takes the last record away again.
void DropRecord(ManifestContext& context) {
  context.files.pop_back();
  context.index.Invalidate();
}

// Takes the finished digest over into the open record and appends the body line. On failure the record is
// gone.
int FinishRecord(ManifestContext& context) {
  ManifestFile& file = context.files[context.openFile];
  const auto digest = context.digest.digest.begin();
  file.digest.assign(digest, digest + static_cast<std::ptrdiff_t>(context.digest.digestLength));
  if (AppendBodyLine(context, file)) return SMF_OK;
  const std::string text = NameText("Write entry in manifest for file >", file.name, "< failed");
  DropRecord(context);
  return Fail(context, SMF_EPARSE, text);
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

// --- comparing ---

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
    if (!IsGiven(manifestFileName)) {
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

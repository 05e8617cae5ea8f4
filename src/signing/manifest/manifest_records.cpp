#include "signing/manifest/manifest_records.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <optional>

#include "fileio/local_file.h"
#include "signing/crypto/trace.h"
#include "signing/hash/codec.h"
#include "signing/manifest/manifest_context.h"
#include "signing/manifest/manifest_document.h"

namespace tolven {

// --- the index ---

std::span<const std::uint32_t> FileIndex::Sorted(const ManifestFiles& files) const {
  if (m_order.size() == files.size()) return m_order;
  m_order.resize(files.size());
  std::iota(m_order.begin(), m_order.end(), std::uint32_t{0});
  std::sort(m_order.begin(), m_order.end(), [&files](std::uint32_t a, std::uint32_t b) {
    const int order = files[a].name.compare(files[b].name);
    return order != 0 ? order < 0 : a < b;
  });
  return m_order;
}

std::size_t FileIndex::FirstOf(const ManifestFiles& files, std::string_view name) const {
  const auto order = Sorted(files);
  const auto first = std::lower_bound(
      order.begin(), order.end(), name,
      [&files](std::uint32_t place, std::string_view wanted) { return files[place].name < wanted; });
  return static_cast<std::size_t>(first - order.begin());
}

std::size_t FileIndex::EndOf(const ManifestFiles& files, std::size_t first) const {
  std::size_t end = first + 1;
  while (end < m_order.size() && files[m_order[end]].name == files[m_order[first]].name) ++end;
  return end;
}

std::size_t FileIndex::Find(const ManifestFiles& files, std::string_view name, std::size_t n) const {
  const std::size_t first = FirstOf(files, name);
  if (n >= m_order.size() - first || files[m_order[first + n]].name != name) return kNone;
  return m_order[first + n];
}

void FileIndex::LeaveBodyOrder(const ManifestFiles& files) {
  if (!m_met.empty()) return;
  m_met.resize(Sorted(files).size());
  for (std::size_t first = 0; first < m_order.size();) {
    const std::size_t end = EndOf(files, first);
    // Of one name they are in body order.
    for (std::size_t at = first; at < end && m_order[at] < m_inOrder; ++at) ++m_met[first];
    first = end;
  }
}

std::size_t FileIndex::Meet(const ManifestFiles& files, std::string_view name) {
  if (m_met.empty() && m_inOrder < files.size() && files[m_inOrder].name == name) return m_inOrder++;
  LeaveBodyOrder(files);
  const std::size_t first = FirstOf(files, name);
  if (first == m_order.size()) return kNone;
  const std::size_t place = Find(files, name, m_met[first]);
  if (place != kNone) ++m_met[first];
  return place;
}

void FileIndex::ForgetMet() {
  m_met.clear();
  m_inOrder = 0;
}

std::size_t FileIndex::FirstUnmet(const ManifestFiles& files) const {
  if (m_met.empty()) return m_inOrder < files.size() ? m_inOrder : kNone;
  std::size_t unmet = kNone;
  for (std::size_t first = 0; first < m_order.size();) {
    const std::size_t end = EndOf(files, first);
    if (m_met[first] < end - first) unmet = std::min<std::size_t>(unmet, m_order[first + m_met[first]]);
    first = end;
  }
  return unmet;
}

// --- looking up ---

namespace {

using DigestBytes = std::array<std::uint8_t, kHaMaxDigestLength>;

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
// whose name ends in "/" and the wanted one. None when not found; nothing is recorded.
std::optional<ManifestFile> FindFileInBody(const ManifestContext& context, std::string_view name,
                                           std::size_t n, bool partialSearch) {
  const ManifestFiles files = context.Files();
  const std::size_t place = context.index.Find(files, name, n);
  if (place != FileIndex::kNone) {
    ManifestTrace("SMF: Hash found for entry >%*.*s< \n", TraceLength(name), TraceLength(name), name.data());
    return files[place];
  }
  if (!partialSearch) return std::nullopt;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!IsTrailingPart(files[i].name, name)) continue;
    ManifestTrace("SMF: Hash found for (partial search) entry >%*.*s< \n", TraceLength(name),
                  TraceLength(name), name.data());
    return files[i];
  }
  return std::nullopt;
}

// The digest of a record as bytes; whether its digits are digits was found out before it became one.
std::span<const std::uint8_t> DigestOf(const ManifestFile& file, DigestBytes& bytes) {
  std::size_t length = 0;
  static_cast<void>(
      haDecBase16SB(file.hexDigest.data(), file.hexDigest.size(), bytes.data(), bytes.size(), &length));
  return std::span(bytes).first(length);
}

bool IsSameDigest(const ManifestFile& file, std::span<const std::uint8_t> digest) {
  DigestBytes bytes{};
  const std::span<const std::uint8_t> listed = DigestOf(file, bytes);
  return !digest.empty() && std::equal(listed.begin(), listed.end(), digest.begin(), digest.end());
}

}  // namespace

int ManifestGetFile(ManifestContext* context, const char* name, std::size_t nameLength,
                    std::span<const std::uint8_t>* digest, bool partialSearch) {
  ManifestContext& c = ContextOf(context);
  *digest = {};
  return Guarded(c, [&]() -> int {
    if (name == nullptr || nameLength == 0)
      return Fail(c, SMF_EINVARG, "Invalid empty input file name passed");
    const std::optional<ManifestFile> file = FindFileInBody(c, {name, nameLength}, 0, partialSearch);
    if (!file) {
      AddError(c, SMF_EFILENOTFOUND, MANIFEST_CATEGORY_NONE, NotFoundText({name, nameLength}, partialSearch));
      return AddError(c, SMF_EFILENOTFOUND, MANIFEST_CATEGORY_NONE, "File not found in manifest");
    }
    *digest = DigestOf(*file, c.foundDigest);
    return SMF_OK;
  });
}

std::size_t ManifestGetFileLength(const ManifestContext* context, const char* name, std::size_t nameLength) {
  if (name == nullptr) return 0;
  const std::optional<ManifestFile> file = FindFileInBody(ContextOf(context), {name, nameLength}, 0, false);
  return file ? file->hexDigest.size() : 0;
}

std::size_t ManifestGetFileCounter(const ManifestContext* context) {
  return ContextOf(context).lines.size();
}

int ManifestGetFileList(ManifestContext* context, ManifestFiles* files) {
  ManifestContext& c = ContextOf(context);
  *files = c.Files();
  if (!files->empty()) return SMF_OK;
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

// Takes the finished digest over into a body line.
int FinishRecord(ManifestContext& context) {
  if (AppendBodyLine(context)) return SMF_OK;
  return Fail(context, SMF_EPARSE,
              NameText("Write entry in manifest for file >", context.openName, "< failed"));
}

int OpenForWriting(ManifestContext& context, std::string_view name) {
  if (context.bodyEnded) return Fail(context, SMF_ERROR, "Manifest context is already signed");
  if (const int result = WriteManifestHeader(context); result != SMF_OK) return result;
  if (const int result = BeginDigest(context); result != SMF_OK) return result;
  context.openName = name;
  context.fileOpen = true;
  return SMF_OK;
}

int OpenForChecking(ManifestContext& context, std::string_view name) {
  const std::size_t place = context.index.Meet(context.Files(), name);
  if (place == FileIndex::kNone) return Fail(context, SMF_EFILENOTFOUND, NotFoundText(name, false));
  if (const int result = BeginDigest(context); result != SMF_OK) return result;
  context.openLine = place;
  context.fileOpen = true;
  return SMF_OK;
}

int FinishCheck(ManifestContext& context) {
  const ManifestFile file = context.Files()[context.openLine];
  if (IsSameDigest(file, std::span(context.digest.digest).first(context.digest.digestLength))) return SMF_OK;
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
  c.fileOpen = false;
}

int ManifestPassFile(ManifestContext* context, const char* fileName, std::size_t nameLength) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    if (fileName == nullptr) return SMF_EINVARG;
    const bool listed = c.index.Meet(c.Files(), {fileName, nameLength}) != FileIndex::kNone;
    return listed ? SMF_OK : SMF_EFILENOTFOUND;
  });
}

void ManifestRewindFiles(ManifestContext* context) {
  ContextOf(context).index.ForgetMet();
}

int ManifestCheckAllMet(ManifestContext* context) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    const std::size_t unmet = c.index.FirstUnmet(c.Files());
    if (unmet == FileIndex::kNone) return SMF_OK;
    return Fail(c, SMF_EFILENOTFOUND,
                NameText("File >", c.Files()[unmet].name, "< of the manifest was not found"));
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
// The first in the external order that has none is told.
int CompareRecords(ManifestContext& internal, const ManifestContext& external) {
  const ManifestFiles files = external.Files();
  std::vector<std::uint32_t> number(files.size());  // among the records of its name
  const auto sorted = external.index.Sorted(files);
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    if (files[sorted[i]].name == files[sorted[i - 1]].name) number[sorted[i]] = number[sorted[i - 1]] + 1;
  }
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::optional<ManifestFile> found = FindFileInBody(internal, files[i].name, number[i], false);
    if (!found) {
      return Fail(internal, SMF_EFILENOTFOUND,
                  NameText("External file >", files[i].name, "< was not found in the internal manifest"));
    }
    DigestBytes bytes{};
    if (!IsSameDigest(*found, DigestOf(files[i], bytes))) {
      return Fail(
          internal, SMF_EDIGEST,
          NameText("External manifest file >", files[i].name, "< digest is different to internal manifest"));
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
  if (internal.lines.size() != external.lines.size()) {
    return DifferenceOf(internal,
                        FormatText("Different size of files in the internal(%zu) and external(%zu) manifest",
                                   internal.lines.size(), external.lines.size()));
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

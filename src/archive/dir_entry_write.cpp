// Entries on their way into an archive.

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "archive/entry_data.h"
#include "cmdline/run_services.h"
#include "fileio/utils.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "report/system_error.h"
#include "report/user_info.h"

namespace tolven {

namespace {

std::string WithSlash(std::string directory) {
  if (directory.empty() || directory.back() != '/') directory += '/';
  return directory;
}

// A relative path made absolute, for -P.
std::string AbsolutePath(const std::string& path) {
  std::array<char, kNameBufferSize> buffer{};
  if (getcwd(buffer.data(), buffer.size()) == nullptr) throw CGetCwdExcept(LastSystemError());
  std::string directory = buffer.data();
  for (char& c : directory) {
    if (c == '\\') c = '/';
  }
  return WithSlash(std::move(directory)) + path;
}

}  // namespace

bool CDirEntry::ProcessOptions(CArchive& archive) {
  if (IsSignedManifest()) return false;
  const CmdOptions& options = m_pPack->run.Options();
  if (m_pPack->run.ExcludeThis(m_path)) {
    if (IsDirectory()) m_pPack->lastExcluded = m_path;
    return true;
  }
  if (!m_pPack->lastExcluded.empty() && m_path.starts_with(WithSlash(m_pPack->lastExcluded))) return true;
  if (options.absolutePaths && !m_path.starts_with('/')) m_storedName = m_path = AbsolutePath(m_path);
  std::string newName;
  if (m_pPack->run.FindNewName(m_storedName, newName)) m_storedName = newName;
  if (options.printStatistics) m_pPack->run.Statistics().CountFile();
  if (options.verbose) archive.Output().Print((m_pPack->run.ScanOnly() ? "t " : "a ") + ShowText(m_path));
  return false;
}

bool CDirEntry::OpenSource() {
  const SourceKind kind = GetSourceKind();
  if (kind.type == 0) return true;
  const int follow = m_pPack->run.Options().resolveLinks ? 0 : O_NOFOLLOW;
  m_source = UniqueFd(open(m_path.c_str(), kind.flags | follow | O_CLOEXEC));
  return static_cast<bool>(m_source);
}

// The object could not be opened: a link without a target, or something that vanished or is out of reach.
void CDirEntry::ReportUnknown(CArchive& archive, SystemError error) {
  strFileInformation target;
  const bool isBrokenLink = m_pPack->run.Options().resolveLinks && CheckIfIsSymlink(m_path) &&
                            !CUtils::GetFileInformation(m_path, target, true);
  if (!isBrokenLink) {
    ReportNotAvailable(archive, SystemErrorText(error));
    return;
  }
  archive.Output().Drain();
  CExcept::NotifyProcessor(kErrorBrokenLink);
  m_pPack->run.FileNotAvail(m_path + " (error 45).", "broken link");
}

// In its place among the lines of the entries before it.
void CDirEntry::ReportNotAvailable(CArchive& archive, const std::string& reason) {
  archive.Output().Drain();
  m_pPack->run.FileNotAvail(m_path, reason);
}

bool CDirEntry::AddToArchive(CArchive* archive) {
  if (ProcessOptions(*archive)) return false;
  // A bar in a link's own path would be taken for the one in front of the target.
  const bool ambiguous = IsLink() && m_storedName.find('|') != std::string::npos;
  const std::uint32_t type = GetSourceKind().type;
  EntryHeader header;
  if (!OpenSource() || !FillEntryHeader(header)) {
    ReportUnknown(*archive, LastSystemError());
    return false;
  }
  if (type != 0 && (header.mode & kModeTypeMask) != type) {
    ReportNotAvailable(*archive, "replaced while being archived");
    return false;
  }
  ResolveLink();
  if (m_storedName.size() + 1 > kMaxNameLength) {
    ReportNotAvailable(*archive, "name too long");
  } else if (ambiguous) {
    ReportNotAvailable(*archive, "link name contains \"|\"");
  } else if (IsLink() || (header.mode & kModeTypeMask) == kModeTypeDirectory) {
    if (!m_pPack->run.ScanOnly()) WriteHeader(archive, header);
  } else {
    WriteFile(archive, header);
  }
  return true;
}

void CDirEntry::WriteFile(CArchive* archive, EntryHeader& header) {
  CFileStream file;
  // An entry that was made in memory has its stream already.
  if (m_pStream == nullptr && !file.AttachNew(m_source.Release())) {
    ReportNotAvailable(*archive, SystemErrorText(LastSystemError()));
    return;
  }
  if (m_pPack->run.ScanOnly()) return;  // opened only to see that it can be
  WriteHeader(archive, header);
  if (m_pStream == nullptr) m_pStream = &file;
  IEntryWitness* witness = DoManifestAPI() ? archive->Witness() : nullptr;
  if (witness != nullptr && !witness->Open(m_storedName)) {
    witness->Raise("TOLVEN: Cannot hash file " + ShowText(m_path), false);
  }
  if (!header.IsEmpty()) {
    m_pPack->strategy.SetDirectoryEntry(this);
    m_pPack->strategy.execute(archive);
  } else if (witness != nullptr) {
    witness->Update({});
  }
  m_pStream = nullptr;
  if (witness != nullptr) CloseWitness(*witness);
}

void CDirEntry::CloseWitness(IEntryWitness& witness) {
  if (!witness.Close()) {
    witness.Raise("TOLVEN: Manifest file hash creation invalid for " + ShowText(m_path),
                  m_pPack->run.Options().verbose);
  }
  m_signed = true;
}

}  // namespace tolven

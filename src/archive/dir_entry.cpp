#include "archive/dir_entry.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "archive/archive.h"
#include "archive/entry_info.h"
#include "archive/extract_target.h"
#include "cmdline/run_services.h"
#include "fileio/utils.h"
#include "report/except.h"
#include "report/log_man.h"

namespace tolven {

CDirEntry::CDirEntry() = default;
CDirEntry::CDirEntry(const std::string& path, PackContext& pack)
    : m_path(path), m_storedName(path), m_shownName(path), m_pPack(&pack) {}
CDirEntry::~CDirEntry() = default;

void CDirEntry::SetReadState(const std::string& storedName, const std::string& shownName,
                             const EntryHeader& header, const std::vector<std::uint8_t>& accessInfo,
                             std::int64_t start, bool) {
  m_storedName = storedName;
  m_shownName = shownName;
  m_path.clear();
  m_tempName.clear();
  m_header = header;
  m_accessInfo = accessInfo;
  m_start = start;
  m_pStream = nullptr;
  m_signed = false;
  m_pending.reset();
}

void CDirEntry::TypeInfo(CLogMan& log) const {
  log.PrintInfo(CEntryInfo(*this));
}

bool CDirEntry::CheckIfIsSymlink(const std::string& path) {
  strFileInformation info;
  return CUtils::GetFileInformation(path, info, false) && (info.mode & kModeTypeMask) == kModeTypeLink;
}

bool CDirEntry::FillBaseHeader(EntryHeader& header, EntryType type) {
  const CmdOptions& options = m_pPack->run.Options();
  strFileInformation info;
  if (!CUtils::GetFileInformation(m_source.Get(), info)) return false;
  header = EntryHeader{};
  header.type = type;
  header.mode = info.mode;
  header.size = static_cast<std::int64_t>(info.size);
  header.mtime = info.mtime;
  if (options.permissionText != nullptr) {
    header.mode = (header.mode & kModeTypeMask) | (options.permission & 07777);
  }
  return true;
}

void CDirEntry::WriteHeader(CArchive* archive, EntryHeader& header) {
  header.nameLength = static_cast<std::uint16_t>(m_storedName.size());
  header.accessInfoLength = static_cast<std::uint16_t>(m_accessInfo.size());
  std::array<unsigned char, kEntryHeaderSize + kMaxNameLength> fixed{};
  EncodeEntryHeader(header, std::span(fixed).first<kEntryHeaderSize>());
  // The zero behind the name is there already.
  std::copy(m_storedName.begin(), m_storedName.end(), fixed.begin() + kEntryHeaderSize);
  archive->Output().Write(std::span(fixed).first(kEntryHeaderSize + m_storedName.size() + 1));
  m_header = header;
}

// --- Concrete entries.

void CFile::SetReadState(const std::string& storedName, const std::string& shownName,
                         const EntryHeader& header, const std::vector<std::uint8_t>& accessInfo,
                         std::int64_t start, bool hash) {
  CDirEntry::SetReadState(storedName, shownName, header, accessInfo, start, hash);
  m_bDoManifest = hash;
}

// Neither a pipe that took the file's place may hold the run up, nor may a terminal become its own.
CDirEntry::SourceKind CFile::GetSourceKind() const {
  return {O_RDONLY | O_NONBLOCK | O_NOCTTY, kModeTypeRegular};
}

bool CFile::FillEntryHeader(EntryHeader& header) {
  return FillBaseHeader(header, kTypeRegular);
}

CDirEntry::SourceKind CDirectory::GetSourceKind() const {
  return {O_PATH | O_DIRECTORY, kModeTypeDirectory};
}

bool CDirectory::FillEntryHeader(EntryHeader& header) {
  return FillBaseHeader(header, kTypeDirectory);
}

CDirEntry::SourceKind CLink::GetSourceKind() const {
  return {O_PATH, kModeTypeLink};
}

bool CLink::FillEntryHeader(EntryHeader& header) {
  if (!FillBaseHeader(header, kTypeLink)) return false;
  header.size = 0;
  header.sizeHigh = 0;
  return true;
}

bool CLink::ResolveLink() {
  if (m_pPack->run.Options().resolveLinks) return true;
  std::array<char, kNameBufferSize> target{};
  errno = 0;
  const ssize_t length = readlinkat(m_source.Get(), "", target.data(), target.size() - 1);
  if (length < 0) throw CReadLinkExcept(m_path);
  m_storedName += '|';
  m_storedName.append(target.data(), static_cast<std::size_t>(length));
  return true;
}

}  // namespace tolven

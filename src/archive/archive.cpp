#include "archive/archive.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "archive/dir_entry.h"
#include "cmdline/cmd_line.h"
#include "cslib/cslib.h"
#include "fileio/output_file.h"
#include "report/except.h"
#include "report/show_text.h"

namespace tolven {

namespace {

bool IsKnownFirstType(EntryType type) {
  constexpr EntryType known[] = {kTypeRegular, kTypeDirectory, kTypeShortcut,
                                 kTypeLink,    kTypeSv,        kTypeManifest};
  return std::find(std::begin(known), std::end(known), type) != std::end(known);
}

std::string LastComponent(const std::string& path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0: the whole path
}

// -flat. A link's name carries its target behind the bar; only the path in front of it is cut.
std::string FlatName(const std::string& name, bool isLink) {
  if (!isLink) return LastComponent(name);
  const std::size_t bar = name.find('|');
  if (bar == std::string::npos) return LastComponent(name);
  return LastComponent(name.substr(0, bar)) + name.substr(bar);
}

void LowerCase(std::string& name) {
  for (char& c : name) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
}

}  // namespace

CArchive::CArchive(const std::string& fileName, unsigned int mode, const ArchiveServices& services)
    : m_services(services) {
  Open(fileName, mode);
  if ((mode & kOpenCreate) != 0) SetNewHeader();
}

CArchive::CArchive(const std::string& fileName, const COutputFile& file, bool isNew,
                   const ArchiveServices& services)
    : m_services(services), m_name(fileName) {
  if (!m_stream.Attach(file.Share(), CFileStream::Writes::kBuffered))
    throw COpenExcept(fileName, LastSystemError());
  TakeSize();
  if (isNew) SetNewHeader();
}

CArchive::CArchive(const std::string& name, std::shared_ptr<IByteSource> source, bool isNew,
                   const ArchiveServices& services)
    : m_services(services), m_name(name) {
  m_stream.Attach(std::move(source), CFileStream::Writes::kBuffered);
  if (isNew) {
    SetNewHeader();
  } else {
    TakeSize();
  }
}

void CArchive::SetNewHeader() {
  std::copy(kMagic.begin(), kMagic.end(), m_magic.begin());
  std::copy(kVersion201.begin(), kVersion201.end(), m_version.begin());
  m_checked = m_valid = true;
}

CArchive::~CArchive() = default;

void CArchive::Open(const std::string& fileName, unsigned int mode) {
  m_name = fileName;
  m_ahead.reset();
  m_stream.Open(fileName, mode, 0);
  if (!m_stream.Open()) throw COpenExcept(fileName, LastSystemError());
  TakeSize();
}

void CArchive::TakeSize() {
  if (m_stream.Source() != nullptr) {
    m_fileSize = m_stream.Source()->Size();
    if (m_fileSize < 0) throw COpenExcept(m_name, LastSystemError());
    m_isFile = m_stream.Descriptor() >= 0;
    return;
  }
  struct stat status {};
  if (fstat(m_stream.Descriptor(), &status) != 0) throw COpenExcept(m_name, LastSystemError());
  m_fileSize = status.st_size;
  m_isFile = S_ISREG(status.st_mode);
}

void CArchive::Reset() {
  Seek(0);
  m_checked = m_valid = false;
}

CArchiveOutput& CArchive::Output() {
  m_ahead.reset();  // what was read is about to change
  if (!m_output) m_output = std::make_unique<CArchiveOutput>(m_stream, m_name, m_services.options.threads);
  return *m_output;
}

// In an archive of the older version a stream runs on over blocks: none of them is anything by itself.
CBlocksAhead* CArchive::Ahead() {
  if (!m_isFile || getVersionString() != kVersion201) return nullptr;
  if (!m_ahead)
    m_ahead = std::make_unique<CBlocksAhead>(m_stream.Descriptor(), m_fileSize, m_services.options.threads);
  m_ahead->CrossEntries(m_wantsAll);
  return m_ahead.get();
}

void CArchive::Close() {
  if (m_stream.Open() && !m_stream.Close()) throw CWriteExcept(m_name, LastSystemError());
}

std::int64_t CArchive::Position() {
  long position = 0;
  if (!m_stream.GetPos(&position)) throw CGetFilePosExcept(LastSystemError());
  return position;
}

bool CArchive::AtEnd() {
  return Position() == m_fileSize;
}

void CArchive::Seek(std::int64_t position) {
  if (!m_stream.SetPos(position)) throw CSetFilePointerExcept(LastSystemError());
}

void CArchive::SeekToEnd() {
  if (!m_stream.MoveToEnd()) throw CSetFilePointerExcept(LastSystemError());
}

void CArchive::WriteHeader() {
  std::array<unsigned char, kArchiveHeaderSize> bytes{};
  std::memcpy(bytes.data() + ArchiveField::magic, m_magic.data(), m_magic.size());
  std::memcpy(bytes.data() + ArchiveField::version, m_version.data(), m_version.size());
  unsigned long done = 0;
  if (!m_stream.Write(bytes.data(), bytes.size(), &done)) throw CWriteExcept(m_name, LastSystemError());
}

bool CArchive::IsValid() {
  if (m_checked) return m_valid;
  m_checked = true;
  std::array<unsigned char, kArchiveHeaderSize> bytes{};
  unsigned long done = 0;
  if (!m_stream.Read(bytes.data(), bytes.size(), &done) || done < bytes.size()) {
    m_checked = false;
    throw CReadExcept(m_name);
  }
  std::memcpy(m_magic.data(), bytes.data() + ArchiveField::magic, m_magic.size());
  std::memcpy(m_version.data(), bytes.data() + ArchiveField::version, m_version.size());
  const std::string_view magic(m_magic.data(), m_magic.size());
  const std::string version = getVersionString();
  if (magic != kMagic && magic != kMagicBackup) return false;
  if (version != kVersion200 && version != kVersion201) {
    throw CUnsupportedArchiveException(
        "archive version " + ShowText(version) +
        " is not supported by this release; to extract this archive you need to "
        "use a newer TOLVEN release\n");
  }
  m_valid = true;
  if (magic == kMagicBackup) {
    throw CUnsupportedArchiveException(
        "archive is a windows backup archive that can be extracted with a unicode-enabled TOLVEN on windows "
        "only");
  }
  return true;
}

std::int64_t CArchive::EndOfWholeEntries() {
  std::int64_t end = kArchiveHeaderSize;
  Seek(end);
  while (end != m_fileSize && PassEntry()) end = Position();
  return end;
}

void CArchive::CutBehindWholeEntries() {
  if (!m_stream.Truncate()) return;
  TakeSize();
  Seek(EndOfWholeEntries());
  static_cast<void>(m_stream.Truncate());
}

bool CArchive::PassEntry() {
  if (!TryRead(m_headerBytes.data(), m_headerBytes.size())) return false;
  const EntryHeader header = DecodeEntryHeader(m_headerBytes);
  if (!IsKnownFirstType(header.type) || header.type == kTypeSv) return false;
  if (header.nameLength > kMaxNameLength) return false;
  if (!Pass(std::int64_t{header.nameLength} + header.accessInfoLength)) return false;
  bool any = false;
  bool ended = false;
  if (!PassBlocks(any, ended)) return false;
  const bool needsData = (header.type == kTypeRegular || header.type == kTypeManifest) && !header.IsEmpty();
  return any ? ended : !needsData;
}

// Readers pass over every block that follows, whatever the header says; so does this.
bool CArchive::PassBlocks(bool& any, bool& ended) {
  while (m_fileSize - Position() >= 2) {
    std::array<unsigned char, kBlockHeaderSize> bytes{};
    if (!TryRead(bytes.data(), 2)) return false;
    const BlockType type = DecodeBlockType(static_cast<char>(bytes[0]), static_cast<char>(bytes[1]));
    if (type == BlockType::kNone) return m_stream.MoveFlPtr(-2);
    if (!TryRead(bytes.data() + 2, bytes.size() - 2)) return false;
    const std::uint32_t length = LoadLittle32(bytes.data() + BlockField::length);
    any = true;
    ended = IsLastBlock(type);
    if (length > kMaxPayload || !Pass(length + (ended ? std::int64_t{kCrcSize} : 0))) return false;
  }
  return true;
}

bool CArchive::Pass(std::int64_t count) {
  return count <= m_fileSize - Position() && m_stream.MoveFlPtr(count);
}

bool CArchive::TryRead(unsigned char* to, unsigned long count) {
  unsigned long done = 0;
  if (!m_stream.Read(to, count, &done)) throw CReadExcept(m_name);
  return done == count;
}

CDirEntry* CArchive::First() {
  if (!IsValid()) return nullptr;
  Seek(kArchiveHeaderSize);
  m_entryStart = kArchiveHeaderSize;
  unsigned long done = 0;
  const bool ok = m_stream.Read(m_headerBytes.data(), m_headerBytes.size(), &done);
  if (ok && done == 0) return nullptr;
  if (!ok || done < m_headerBytes.size()) throw CReadExcept(m_name);
  m_header = DecodeEntryHeader(m_headerBytes);
  if (!IsKnownFirstType(m_header.type)) return nullptr;
  return ReadEntry();
}

CDirEntry* CArchive::Next() {
  for (;;) {
    m_entryStart = Position();
    if (!ReadType(m_headerBytes.data())) return nullptr;
    const BlockType type =
        DecodeBlockType(static_cast<char>(m_headerBytes[0]), static_cast<char>(m_headerBytes[1]));
    if (type == BlockType::kNone) break;
    SkipPayload(type);
  }
  ReadExactly(m_headerBytes.data() + 2, m_headerBytes.size() - 2);
  m_header = DecodeEntryHeader(m_headerBytes);
  return ReadEntry();
}

bool CArchive::ReadType(unsigned char* type) {
  unsigned long done = 0;
  const bool ok = m_stream.Read(type, 2, &done);
  if (ok && done == 0) return false;
  if (!ok || done < 2) throw CReadExcept(m_name);
  return true;
}

// Behind the two letters of a block. Seeking beyond the end of a file succeeds on this platform, so the end
// is checked here: a block that the file does not hold whole is a cut archive, not the end of a good one.
void CArchive::SkipPayload(BlockType type) {
  std::array<unsigned char, 4> bytes{};
  ReadExactly(bytes.data(), bytes.size());
  const std::int64_t skip = std::int64_t{LoadLittle32(bytes.data())} +
                            (IsLastBlock(type) ? static_cast<std::int64_t>(kCrcSize) : 0);
  if (skip > m_fileSize - Position() || !m_stream.MoveFlPtr(skip)) {
    throw CExcept("TOLVEN: error in second MoveFlPtr()", kNoSystemError);
  }
}

CDirEntry* CArchive::ReadEntry() {
  ReadEntryName();
  ReadEntryAccessInfo();
  return EntryFactory();
}

void CArchive::ReadEntryName() {
  if (m_header.nameLength > kMaxNameLength) {
    throw CExcept(
        "TOLVEN: violation of data integrity - value of entry-name-length exceeds allocated buffer size!",
        kNoSystemError);
  }
  ReadExactly(reinterpret_cast<unsigned char*>(m_nameBuffer.data()), m_header.nameLength);
  m_nameBuffer[m_header.nameLength] = '\0';
  m_storedName = m_nameBuffer.data();  // up to the first zero byte
  const bool isLink = m_header.type == kTypeLink || m_header.type == kTypeShortcut;
  m_shownName = ShownName(m_storedName, isLink);
  m_header.nameLength = static_cast<std::uint16_t>(m_storedName.size());
}

std::string CArchive::ShownName(const std::string& storedName, bool isLink) const {
  std::string name = storedName;
  if (Options().lowerCase) LowerCase(name);
  return Options().flat ? FlatName(name, isLink) : name;
}

void CArchive::ReadEntryAccessInfo() {
  m_accessInfo.resize(m_header.accessInfoLength);
  if (!m_accessInfo.empty()) ReadExactly(m_accessInfo.data(), m_accessInfo.size());
}

CDirEntry* CArchive::EntryFactory() {
  EntryClass entryClass = EntryClass::kFile;
  const bool isManifest = m_header.type == kTypeManifest ||
                          (m_header.type == kTypeRegular &&
                           m_services.factory.IsTypeManifest(m_header, m_storedName, m_accessInfo));
  if (isManifest) {
    m_signed = true;
    m_header.mode = 0600;
    entryClass = EntryClass::kSignedManifest;
  } else if (m_header.type == kTypeDirectory) {
    entryClass = EntryClass::kDirectory;
  } else if (m_header.type == kTypeLink || m_header.type == kTypeShortcut) {
    entryClass = EntryClass::kLink;
  } else if (m_header.type != kTypeRegular) {
    throw CExcept("TOLVEN: unknown entry type encountered", kNoSystemError);
  }
  std::unique_ptr<CDirEntry>& entry = m_entries[static_cast<std::size_t>(entryClass)];
  if (!entry) entry = m_services.factory.NewEntry(entryClass);
  entry->SetReadState(m_storedName, m_shownName, m_header, m_accessInfo, m_entryStart,
                      m_witness != nullptr && entryClass == EntryClass::kFile);
  return entry.get();
}

int CArchive::GetEntryData(unsigned char* buffer, unsigned long bufferSize, unsigned long& bytesRead,
                           std::uint32_t& checksum, bool& compressed) {
  std::array<unsigned char, kBlockHeaderSize> bytes{};
  ReadExactly(bytes.data(), bytes.size());
  const std::uint32_t length = LoadLittle32(bytes.data() + BlockField::length);
  if (length > bufferSize) {
    throw CExcept("TOLVEN: error in GetEntryData(); entry data length exceeds buffer limit", kNoSystemError);
  }
  ReadExactly(buffer, length);
  const BlockType type = DecodeBlockType(static_cast<char>(bytes[0]), static_cast<char>(bytes[1]));
  if (type == BlockType::kNone) {
    throw CExcept("TOLVEN: error in GetEntryData(); unknown block type", kNoSystemError);
  }
  bytesRead = length;
  compressed = IsCompressedBlock(type);
  return ReadBlockEnd(type, checksum);
}

int CArchive::PassEntryData(std::uint32_t payloadSize, std::uint32_t& checksum) {
  std::array<unsigned char, kBlockHeaderSize> bytes{};
  ReadExactly(bytes.data(), bytes.size());
  const BlockType type = DecodeBlockType(static_cast<char>(bytes[0]), static_cast<char>(bytes[1]));
  // The file is not what it was a moment ago.
  if (!IsCompressedBlock(type) || LoadLittle32(bytes.data() + BlockField::length) != payloadSize) {
    throw CReadExcept(m_name);
  }
  if (!m_stream.MoveFlPtr(payloadSize)) throw CReadExcept(m_name);
  return ReadBlockEnd(type, checksum);
}

int CArchive::ReadBlockEnd(BlockType type, std::uint32_t& checksum) {
  if (!IsLastBlock(type)) return 1;
  std::array<unsigned char, kCrcSize> crc{};
  ReadExactly(crc.data(), crc.size());
  checksum = LoadLittle32(crc.data());
  return 0;
}

bool CArchive::PassBlock(BlockPlace& place) {
  if (!BlockFollows()) return false;
  std::array<unsigned char, kBlockHeaderSize> bytes{};
  ReadExactly(bytes.data(), bytes.size());
  place.type = DecodeBlockType(static_cast<char>(bytes[0]), static_cast<char>(bytes[1]));
  place.length = LoadLittle32(bytes.data() + BlockField::length);
  place.payload = Position();
  place.dataLength = IsCompressedBlock(place.type) ? 0 : place.length;
  const std::int64_t skip =
      std::int64_t{place.length} + (IsLastBlock(place.type) ? static_cast<std::int64_t>(kCrcSize) : 0);
  if (skip > m_fileSize - Position()) {
    throw CExcept("TOLVEN: error in second MoveFlPtr()", kNoSystemError);
  }
  std::int64_t passed = 0;
  if (IsCompressedBlock(place.type) && place.length >= CS_HEAD_SIZE) {
    std::array<unsigned char, CS_HEAD_SIZE> head{};
    ReadExactly(head.data(), head.size());
    passed = CS_HEAD_SIZE;
    const std::int32_t length = CsRGetLen(head.data());
    if (length > 0) place.dataLength = static_cast<std::uint32_t>(length);
  }
  if (!m_stream.MoveFlPtr(skip - passed)) throw CSetFilePointerExcept(LastSystemError());
  return true;
}

bool CArchive::BlockFollows() {
  std::array<unsigned char, 2> type{};
  unsigned long done = 0;
  if (!m_stream.Read(type.data(), type.size(), &done)) throw CReadExcept(m_name);
  if (!m_stream.MoveFlPtr(-static_cast<long>(done))) throw CSetFilePointerExcept(LastSystemError());
  return done == type.size() &&
         DecodeBlockType(static_cast<char>(type[0]), static_cast<char>(type[1])) != BlockType::kNone;
}

void CArchive::ReadExactly(unsigned char* to, unsigned long count) {
  unsigned long done = 0;
  if (!m_stream.Read(to, count, &done) || done < count) throw CReadExcept(m_name);
}

}  // namespace tolven

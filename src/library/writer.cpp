#include "library/writer.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>

#include "fileio/current_umask.h"
#include "fileio/utils.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/show_text.h"

namespace tolven {

namespace {

constexpr std::uint32_t kNewArchiveMode = 0666;

// The data that a caller gives, all of it and no more.
class CDataStream final : public CFileStream {
 public:
  CDataStream(CWriter::ReadData read, void* context, std::uint64_t size)
      : m_read(read), m_context(context), m_left(size) {}

  bool Read(unsigned char* buf, unsigned long n, unsigned long* done) override {
    *done = 0;
    while (*done < n && !m_ended) {
      const std::int64_t got = m_read(m_context, buf + *done, n - *done);
      if (got < 0 || static_cast<std::uint64_t>(got) > n - *done) return false;
      m_ended = got == 0;
      if (static_cast<std::uint64_t>(got) > m_left) throw WrongLength();
      m_left -= static_cast<std::uint64_t>(got);
      *done += static_cast<unsigned long>(got);
    }
    if (m_ended && m_left > 0) throw WrongLength();
    return true;
  }

 private:
  static LibraryError WrongLength() { return {TOLVEN_E_LENGTH, "the data is not as long as the entry says"}; }

  CWriter::ReadData m_read;
  void* m_context;
  std::uint64_t m_left;
  bool m_ended = false;
};

// An entry that comes from no file system.
class CMadeEntry final : public CDirEntry {
 public:
  CMadeEntry(const std::string& name, std::string target, const EntryHeader& header, CFileStream* data,
             PackContext& pack)
      : CDirEntry(name, pack), m_target(std::move(target)), m_made(header) {
    m_pStream = data;
  }
  double GetSpaceNeeded() const override { return m_made.DataLength(); }
  bool IsLink() const override { return !m_target.empty(); }
  bool FillEntryHeader(EntryHeader& header) override {
    header = m_made;
    return true;
  }
  bool ResolveLink() override {
    if (IsLink()) m_storedName += '|' + m_target;
    return true;
  }

 private:
  const std::string m_target;
  const EntryHeader m_made;
};

// What no reader could take for what was meant.
std::string StorableText(const char* text, std::size_t size, const char* what) {
  std::string taken(text == nullptr ? "" : text, text == nullptr ? 0 : size);
  if (taken.empty() || taken.find('\0') != std::string::npos || taken.size() >= kMaxNameLength) {
    throw LibraryError{TOLVEN_E_ARGUMENT, std::string(what) + " cannot be stored"};
  }
  return taken;
}

struct TypeRow {
  std::int32_t type;
  EntryType stored;
  std::uint32_t bits;
};
constexpr TypeRow kTypes[] = {
    {TOLVEN_FILE, kTypeRegular, kModeTypeRegular},
    {TOLVEN_DIRECTORY, kTypeDirectory, kModeTypeDirectory},
    {TOLVEN_LINK, kTypeLink, kModeTypeLink},
};

EntryHeader HeaderOf(const tolven_entry& entry) {
  for (const TypeRow& row : kTypes) {
    if (row.type != entry.type) continue;
    EntryHeader header;
    header.type = row.stored;
    header.mode = row.bits | (entry.mode & 07777);
    header.size = row.type == TOLVEN_FILE ? static_cast<std::int64_t>(entry.size) : 0;
    header.mtime = entry.mtime;
    if (header.size < 0) break;
    return header;
  }
  throw LibraryError{TOLVEN_E_ARGUMENT, "an entry of no type that can be added, or of no possible size"};
}

}  // namespace

CWriter::CWriter(const tolven_options& options) : CHandle(options), m_pack{*this, m_compress} {
  m_cmdOptions.resolveLinks = false;
}

CWriter::~CWriter() {
  const RunStatusScope scope(m_status);
  Abort();
}

void CWriter::Abort() {
  if (m_archive) m_archive->Stream().Abandon();  // what is buffered is not wanted any more
  m_archive.reset();
  m_pending.reset();
  m_root.reset();
  m_broken = false;
}

void CWriter::Begin(const std::string& name, std::shared_ptr<CSource> source) {
  ForgetCancel();
  m_archive.emplace(name, std::move(source), true, ArchiveServices{m_factory, m_cmdOptions, m_buffers});
  m_archive->WriteHeader();
}

void CWriter::Create(const char* path) {
  Abort();
  strFileInformation info;
  if (CUtils::GetFileInformation(path, info, false) && !S_ISREG(info.mode)) {
    throw LibraryError{TOLVEN_E_ARGUMENT, "what stands there is not a regular file"};
  }
  m_root.emplace(false);
  m_pending.emplace(*m_root, path);
  std::string failed;
  if (m_pending->Create(failed) != CPendingFile::Step::kNone) {
    const SystemError error = LastSystemError();
    Abort();
    throw COpenExcept(path, error);
  }
  UniqueFd file(fcntl(m_pending->Stream().Descriptor(), F_DUPFD_CLOEXEC, 3));
  if (!file) throw COpenExcept(path, LastSystemError());
  Begin(path, std::make_shared<CSource>(*this, std::move(file)));
}

void CWriter::Create(UniqueFd file) {
  Abort();
  if (!file) throw COpenExcept("descriptor", LastSystemError());
  Begin("descriptor", std::make_shared<CSource>(*this, std::move(file)));
}

void CWriter::Create(const tolven_callbacks& callbacks) {
  Abort();
  Begin("archive", std::make_shared<CSource>(*this, callbacks));
}

bool CWriter::FindNewName(const std::string&, std::string& newName) const {
  newName = m_newName;
  return true;
}

void CWriter::FileNotAvail(const std::string& name, const std::string& reason) {
  m_unavailable = "TOLVEN: file '" + ShowText(name) + "' is inaccessible (" + reason + ")";
}

void CWriter::Add(CDirEntry& entry) {
  m_unavailable.clear();
  try {
    entry.AddToArchive(&*m_archive);
  } catch (...) {
    m_broken = true;
    throw;
  }
  if (!m_unavailable.empty()) throw LibraryError{kErrorInaccessible, m_unavailable};
}

void CWriter::AddPath(const char* path, std::string name) {
  if (!m_archive || m_broken) throw LibraryError{TOLVEN_E_STATE, "there is no archive to add to"};
  m_newName = StorableText(name.data(), name.size(), "the name");
  strFileInformation info;
  if (!CUtils::GetFileInformation(path, info, false)) {
    FileNotAvail(path, SystemErrorText(LastSystemError()));
    throw LibraryError{kErrorInaccessible, m_unavailable};
  }
  switch (info.mode & kModeTypeMask) {
    case kModeTypeRegular: {
      CFile file(path, m_pack, false);
      return Add(file);
    }
    case kModeTypeDirectory: {
      CDirectory directory(path, m_pack);
      return Add(directory);
    }
    case kModeTypeLink: {
      CLink link(path, m_pack);
      return Add(link);
    }
    default:
      FileNotAvail(path, "not a file, directory or link");
      throw LibraryError{kErrorInaccessible, m_unavailable};
  }
}

void CWriter::AddEntry(const tolven_entry& entry, ReadData read, void* context) {
  if (!m_archive || m_broken) throw LibraryError{TOLVEN_E_STATE, "there is no archive to add to"};
  m_newName = StorableText(entry.name, entry.name_size, "the name");
  const EntryHeader header = HeaderOf(entry);
  std::string target;
  if (entry.type == TOLVEN_LINK) {
    target = StorableText(entry.target, entry.target_size, "the target");
    const std::string whole = m_newName + '|' + target;
    static_cast<void>(StorableText(whole.data(), whole.size(), "the link"));
    if (m_newName.find('|') != std::string::npos) {
      throw LibraryError{TOLVEN_E_ARGUMENT, "the name of a link cannot contain \"|\""};
    }
  }
  if (!header.IsEmpty() && read == nullptr) throw LibraryError{TOLVEN_E_ARGUMENT, "there is no data"};
  CDataStream data(read, context, entry.size);
  CMadeEntry made(m_newName, target, header, &data, m_pack);
  Add(made);
}

void CWriter::Finish() {
  if (!m_archive || m_broken) throw LibraryError{TOLVEN_E_STATE, "there is no archive to finish"};
  try {
    m_archive->Output().Drain();
    m_archive->Close();
    if (m_pending) {
      const std::string name = m_archive->Name();
      if (m_pending->Commit(kNewArchiveMode & ~CurrentUmask(), std::time(nullptr)) !=
          CPendingFile::Step::kNone) {
        throw CWriteExcept(name, LastSystemError());
      }
    }
  } catch (...) {
    Abort();
    throw;
  }
  Abort();
}

}  // namespace tolven

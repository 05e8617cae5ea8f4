#include "archive/commands/create.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "fileio/remove_on_signal.h"
#include "fileio/working_directory.h"
#include "report/except.h"
#include "report/show_text.h"
#include "report/system_error.h"
#include "signing/signed_manifest.h"

namespace tolven {

namespace {

constexpr int kLastArchivableType = 5;  // type codes above it are devices, pipes, sockets

bool IsDotName(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name == "." || name == "..";
}

std::string WithWildcard(const std::string& directory) {
  return directory.ends_with('/') ? directory + "*" : directory + "/*";
}

}  // namespace

void CCreate::Execute() {
  const CmdOptions& options = m_pProcessor->Options();
  if (options.sourceDir != nullptr) {
    m_pProcessor->CmdLine().AnchorFileOptions(m_pProcessor->StartDirectory());
    errno = 0;
    if (!CWorkingDirectory::Enter(options.sourceDir)) throw CChgDirExcept(options.sourceDir);
  }
  const CEntryServices services(*m_pProcessor);
  bool needsHeader = false;
  const unsigned int mode = OpenMode(needsHeader);
  CArchive archive(m_pProcessor->ArchiveName(), mode, m_factory, options);
  std::optional<CRemoveOnSignal> guard;
  if (m_pProcessor->Command() == CMD_CREATE) guard.emplace(archive.Name());
  WriteArchive(archive, needsHeader);
  archive.Close();
}

void CCreate::WriteArchive(CArchive& archive, bool needsHeader) {
  struct stat status {};
  if (fstat(archive.Stream().Descriptor(), &status) != 0) throw CStatExcept(archive.Name());
  m_archiveIdentity = {status.st_dev, status.st_ino};
  if (needsHeader) archive.WriteHeader();
  CSignedManifest::VerifyArchiveSignature(true, &archive, m_pProcessor);
  if (m_pProcessor->Command() != CMD_SIGN) {
    for (const std::string& name : m_pProcessor->CmdLine().GetNames()) AddName(name, archive);
  }
  unsigned long failed = 0;
  CSignedManifest::CheckErrors(&archive, nullptr, failed);
  CSignedManifest::CreateArchiveSignature(&archive, m_pProcessor, CDirEntry::m_pCompressStrategy);
}

// Create overwrites; a plain append writes at the end; with signing the old signature at the end is
// overwritten in place. What is not an archive of ours is refused before anything of it is touched.
unsigned int CCreate::OpenMode(bool& needsHeader) const {
  if (m_pProcessor->Command() == CMD_CREATE) {
    needsHeader = true;
    return kOpenCreate;
  }
  const bool signing = CSignedManifest::IsSigning(*m_pProcessor);
  const std::string name = m_pProcessor->ArchiveName();
  double size = 0;
  const bool exists = CUtils::GetSizeOfFile(name, size);
  if (m_pProcessor->Command() == CMD_APPEND && (!exists || size == 0)) {
    needsHeader = true;
    return signing ? kOpenCreate : kOpenAppend | kOpenCreate;
  }
  errno = 0;
  CArchive existing(name, kOpenRead, m_factory, m_pProcessor->Options());
  errno = 0;
  if (size < static_cast<double>(kArchiveHeaderSize) || !existing.IsValid()) {
    throw CUnsupportedArchiveException(ShowText(name));
  }
  return signing ? kOpenReadWrite : kOpenAppend | kOpenCreate;
}

void CCreate::AddName(const std::string& name, CArchive& archive) {
  const bool literal = m_pProcessor->CmdLine().IsLiteralName(name);
  if (!literal && name.find_first_of("*?") != std::string::npos) {
    strFileData data;
    errno = 0;
    const FindHandle handle = CUtils::FileFindOpen(name, &data);
    if (handle == nullptr) throw CExcept("TOLVEN: error in CCreate::ProcessDirectory");
    PushLevel(handle, data, name, {});
  } else if (name == "/" || IsDotName(name)) {  // never entries themselves; what is in them is meant
    Descend(name);
  } else {
    AddObject(name, archive);
  }
  ProcessDirectory(archive);
}

// A loop over the levels that are open, not a recursion: how deep a tree is must not decide on success. The
// names of a level are taken before the first of them is archived: one open directory at a time.
void CCreate::ProcessDirectory(CArchive& archive) {
  while (!m_levels.empty()) {
    Level& level = m_levels.back();
    if (level.next == level.names.size()) {
      m_levels.pop_back();
    } else {
      AddObject(level.prefix + level.names[level.next++], archive);
    }
  }
}

void CCreate::PushLevel(const FindHandle& directory, strFileData& data, const std::string& pattern,
                        Identity identity) {
  Level level{.identity = identity, .prefix = pattern.substr(0, pattern.rfind('/') + 1), .names = {}};
  while (CUtils::FileFindName(directory, &data)) {
    if (!IsDotName(data.name.data())) level.names.emplace_back(data.name.data());
  }
  if (errno != 0) {
    const int error = errno;
    PrintLine("TOLVEN: error reading directory " + ShowText(data.directory));
    errno = error;
    throw CExcept("TOLVEN: error in CCreate::ProcessDirectory");
  }
  m_levels.push_back(std::move(level));
}

void CCreate::AddObject(const std::string& path, CArchive& archive) {
  strFileData data;
  errno = 0;
  if (!CUtils::SetFlAttr(path, data)) {
    m_pProcessor->FileNotAvail(path, SystemErrorText());
    return;
  }
  const bool resolve = m_pProcessor->Options().resolveLinks;
  int type = CUtils::DetermineFlType(data);
  if (type == FT_LINK && resolve) type = CUtils::TargetFileType(path);
  if (type < FT_DIRECTORY) throw CExcept("TOLVEN: error in determining type of " + ShowText(path));
  if (type > kLastArchivableType) {
    m_pProcessor->FileNotAvail(path, "not a file, directory or link");
    return;
  }
  strFileInformation info;
  const bool known = CUtils::GetFileInformation(path, info, resolve);
  if (known && Identity(info.device, info.inode) == m_archiveIdentity) return;
  const bool included = CreateFileObject(path, type, archive)->AddToArchive(&archive);
  if (included && type == FT_DIRECTORY) Descend(path);
}

// A directory that is its own ancestor through links ends here; its entry is written, once. With -r a link
// that took the directory's place is not followed either.
void CCreate::Descend(const std::string& directory) {
  const std::string pattern = WithWildcard(directory);
  strFileData data;
  strFileInformation info;
  errno = 0;
  const FindHandle handle = CUtils::FileFindOpen(pattern, &data, m_pProcessor->Options().resolveLinks);
  if (handle == nullptr || !CUtils::GetFileInformation(dirfd(handle.get()), info)) {
    m_pProcessor->FileNotAvail(directory, SystemErrorText());
    return;
  }
  const Identity identity(info.device, info.inode);
  const bool isAncestor = std::any_of(m_levels.begin(), m_levels.end(),
                                      [&](const Level& level) { return level.identity == identity; });
  if (!isAncestor) PushLevel(handle, data, pattern, identity);
}

std::unique_ptr<CDirEntry> CCreate::CreateFileObject(const std::string& name, int type,
                                                     CArchive& archive) const {
  switch (type) {
    case FT_DIRECTORY:
      return std::make_unique<CDirectory>(name);
    case FT_REGULAR:
    case FT_DANGLING_LINK:  // reported as broken when its header cannot be filled
      return std::make_unique<CFile>(name, archive.HashEntries() && !m_pProcessor->ScanOnly());
    case FT_LINK:
      return std::make_unique<CLink>(name);
    default:
      errno = 0;
      throw CExcept("TOLVEN: error creating file object for " + ShowText(name));
  }
}

}  // namespace tolven

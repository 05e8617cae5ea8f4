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
  CSignedManifest::SetStartDirectory(m_pProcessor->StartDirectory());
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
    throw CUnsupportedArchiveException(name);
  }
  return signing ? kOpenReadWrite : kOpenAppend | kOpenCreate;
}

void CCreate::AddName(const std::string& name, CArchive& archive) {
  const bool literal = m_pProcessor->CmdLine().IsLiteralName(name);
  if (!literal && name.find_first_of("*?") != std::string::npos) {
    ProcessDirectory(name, archive);
    return;
  }
  strFileData data;
  errno = 0;
  if (!CUtils::SetFlAttr(name, data)) {
    m_pProcessor->FileNotAvail(name, SystemErrorText());
    return;
  }
  if (name == "/" || IsDotName(name)) {  // never entries themselves; what is in them is meant
    Descend(name, archive);
    return;
  }
  AddObject({name, data.attributes}, archive);
}

std::vector<CCreate::Hit> CCreate::Scan(const std::string& pattern) const {
  const std::string prefix = pattern.substr(0, pattern.rfind('/') + 1);
  std::vector<Hit> hits;
  strFileData data;
  errno = 0;
  FindHandle handle = CUtils::FileFindFirst(pattern, &data);
  bool found = handle != nullptr;
  while (found) {
    const std::string name = data.name.data();
    if (name != "." && name != "..") hits.push_back({prefix + name, data.attributes});
    found = CUtils::FileFindNext(handle, &data);
  }
  if (errno != 0) throw CExcept("TOLVEN: error in CCreate::ProcessDirectory");
  return hits;
}

// The hits are taken before the first is archived: one open directory at a time, however deep the tree is.
void CCreate::ProcessDirectory(const std::string& pattern, CArchive& archive) {
  for (const Hit& hit : Scan(pattern)) AddObject(hit, archive);
}

void CCreate::AddObject(const Hit& hit, CArchive& archive) {
  strFileData data;
  data.attributes = hit.attributes;
  const bool resolve = m_pProcessor->Options().resolveLinks;
  int type = CUtils::DetermineFlType(data);
  if (type == FT_LINK && resolve) type = CUtils::TargetFileType(hit.path);
  if (type < FT_DIRECTORY) throw CExcept("TOLVEN: error in determining type of " + hit.path);
  if (type > kLastArchivableType) {
    m_pProcessor->FileNotAvail(hit.path, "not a file, directory or link");
    return;
  }
  strFileInformation info;
  const bool known = CUtils::GetFileInformation(hit.path, info, resolve);
  if (known && Identity(info.device, info.inode) == m_archiveIdentity) return;
  const bool included = CreateFileObject(hit.path, type, archive)->AddToArchive(&archive);
  if (included && type == FT_DIRECTORY) Descend(hit.path, archive);
}

// A directory that is its own ancestor through links ends here; its entry is written, once.
void CCreate::Descend(const std::string& directory, CArchive& archive) {
  strFileInformation info;
  if (!CUtils::GetFileInformation(directory, info, true)) {
    throw CExcept("TOLVEN: error in CCreate::ProcessDirectory");
  }
  const Identity identity(info.device, info.inode);
  if (std::find(m_ancestors.begin(), m_ancestors.end(), identity) != m_ancestors.end()) return;
  m_ancestors.push_back(identity);
  ProcessDirectory(WithWildcard(directory), archive);
  m_ancestors.pop_back();
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
      throw CExcept("TOLVEN: error creating file object for " + name);
  }
}

}  // namespace tolven

// CCreate: -c, -a and -S, declared with the other commands.

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "archive/archive.h"
#include "archive/commands/commands.h"
#include "archive/signature.h"
#include "fileio/output_file.h"
#include "fileio/working_directory.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"
#include "report/system_error.h"

namespace tolven {

namespace {

constexpr int kLastArchivableType = 5;  // type codes above it are devices, pipes, sockets

std::string LastComponent(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

std::string WithWildcard(const std::string& directory) {
  return directory.ends_with('/') ? directory + "*" : directory + "/*";
}

}  // namespace

void CCreate::Execute() {
  const CmdOptions& options = m_run.Options();
  m_signature.SetStartDirectory(m_run.StartDirectory());
  if (options.sourceDir != nullptr) {
    m_run.CmdLine().AnchorFileOptions(m_run.StartDirectory());
    if (!CWorkingDirectory::Enter(options.sourceDir))
      throw CChgDirExcept(options.sourceDir, LastSystemError());
  }
  const std::string name = m_run.ArchiveName();
  COutputFile& file = m_run.ArchiveFile();
  if (!Open(file, name)) throw COpenExcept(name, LastSystemError());
  const bool creates = m_run.Command() == CMD_CREATE;
  if (creates && !file.Cut()) throw COpenExcept(name, LastSystemError());
  const bool isNew = creates || (m_run.Command() == CMD_APPEND && file.Size() == 0);
  CArchive archive(name, file, isNew, Services());
  if (!isNew) JudgeExisting(archive);
  WriteArchive(archive, isNew);
}

// With signing the old signature at the end is overwritten in place; a plain append writes at the end. A
// create reads what it wrote only when it fails: an archive that may not be read will do.
bool CCreate::Open(COutputFile& file, const std::string& name) const {
  if (m_run.Command() == CMD_SIGN) return file.Open(name, O_RDWR);
  if (m_run.Command() == CMD_APPEND) {
    const bool signs = m_signature.IsSigning(m_run);
    return file.Open(name, O_RDWR | O_CREAT | (signs ? 0 : O_APPEND));
  }
  return file.Open(name, O_RDWR | O_CREAT) || (errno == EACCES && file.Open(name, O_WRONLY | O_CREAT));
}

// What cannot be read is no reason to delete it, as a failure while entries are being written is.
void CCreate::JudgeExisting(CArchive& archive) const {
  if (m_run.ArchiveFile().Size() < static_cast<std::int64_t>(kArchiveHeaderSize)) {
    throw CUnsupportedArchiveException(ShowText(archive.Name()));
  }
  bool isWhole = false;
  try {
    if (!archive.IsValid()) throw CUnsupportedArchiveException(ShowText(archive.Name()));
    // A signing reads all that is there; it has to find something.
    const bool signs = m_run.Command() == CMD_SIGN;
    isWhole = signs ? archive.IsWithoutEntries() || archive.First() != nullptr : archive.IsWhole();
  } catch (const CReadExcept&) {
    const SystemError error{archive.Stream().GetLastError()};
    if (error) throw COpenExcept(archive.Name(), error);
  }
  if (!isWhole) throw CUnsupportedArchiveException(ShowText(archive.Name()) + " is damaged or incomplete");
}

void CCreate::WriteArchive(CArchive& archive, bool isNew) {
  COutputFile& file = m_run.ArchiveFile();
  std::int64_t start = -1;  // of what this run writes
  try {
    if (isNew) {
      // Empty, perhaps, but it was there.
      if (!file.KeepFrom(0)) throw COpenExcept(archive.Name(), LastSystemError());
      start = 0;
      archive.WriteHeader();
    }
    m_signature.VerifyArchiveSignature(true, archive, m_run);
    if (!isNew) {
      if (!m_signature.IsSigning(m_run)) archive.SeekToEnd();
      if (!file.KeepFrom(archive.Position())) throw COpenExcept(archive.Name(), LastSystemError());
      start = archive.Position();
    }
    WriteEntries(archive);
    archive.Close();
  } catch (...) {
    GiveUp(archive, start);
    throw;
  }
}

// New entries that end within the signature they overwrite, or half an entry, would hide whatever came to
// stand behind them.
void CCreate::GiveUp(CArchive& archive, std::int64_t start) {
  if (m_run.Command() == CMD_SIGN) {
    archive.Stream().Abandon();
    m_run.ArchiveFile().Restore();
    return;
  }
  long end = 0;
  if (start < 0 || !archive.Stream().GetPos(&end) || end <= start) return;  // nothing was written
  const int code = m_run.ExitCode();
  try {
    archive.CutBehindWholeEntries();
  } catch (const CExcept&) {  // the first failure is the one to report
  }
  m_run.SetExitCode(code);
}

void CCreate::WriteEntries(CArchive& archive) {
  if (m_run.Command() != CMD_SIGN) {
    try {
      for (const std::string& name : m_run.CmdLine().GetNames()) AddName(name, archive);
      archive.Output().Drain();
    } catch (...) {
      archive.Output().Drain();  // what came before it still goes in, or fails first
      throw;
    }
  }
  unsigned long failed = 0;
  m_signature.CheckErrors(archive, nullptr, failed, nullptr);
  m_signature.CreateArchiveSignature(archive, m_run, m_pack);
}

void CCreate::AddName(const std::string& name, CArchive& archive) {
  const bool literal = m_run.CmdLine().IsLiteralName(name);
  if (!literal && name.find_first_of("*?") != std::string::npos) {
    strFileData data;
    const FindHandle handle = CUtils::FileFindOpen(name, &data);
    if (handle == nullptr) throw CExcept("TOLVEN: error in CCreate::ProcessDirectory", LastSystemError());
    PushLevel(archive, handle, data, name, {});
  } else if (name == "/" ||
             IsDotName(LastComponent(name))) {  // never entries themselves; what is in them is meant
    Descend(name, archive);
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

void CCreate::PushLevel(CArchive& archive, const FindHandle& directory, strFileData& data,
                        const std::string& pattern, Identity identity) {
  Level level{.identity = identity, .prefix = pattern.substr(0, pattern.rfind('/') + 1), .names = {}};
  while (CUtils::FileFindName(directory, &data)) {
    if (!IsDotName(data.name.data())) level.names.emplace_back(data.name.data());
  }
  if (const SystemError error = LastSystemError()) {
    archive.Output().Drain();
    PrintLine("TOLVEN: error reading directory " + ShowText(data.directory));
    throw CExcept("TOLVEN: error in CCreate::ProcessDirectory", error);
  }
  m_levels.push_back(std::move(level));
}

// In its place among the lines of the entries before it.
void CCreate::ReportNotAvailable(CArchive& archive, const std::string& path,
                                 const std::string& reason) const {
  archive.Output().Drain();
  m_run.FileNotAvail(path, reason);
}

void CCreate::AddObject(const std::string& path, CArchive& archive) {
  strFileData data;
  if (!CUtils::SetFlAttr(path, data)) {
    ReportNotAvailable(archive, path, SystemErrorText(LastSystemError()));
    return;
  }
  const bool resolve = m_run.Options().resolveLinks;
  int type = CUtils::DetermineFlType(data);
  if (type == FT_LINK && resolve) type = CUtils::TargetFileType(path);
  if (type < FT_DIRECTORY)
    throw CExcept("TOLVEN: error in determining type of " + ShowText(path), kNoSystemError);
  if (type > kLastArchivableType) {
    ReportNotAvailable(archive, path, "not a file, directory or link");
    return;
  }
  strFileInformation info;
  const bool known = CUtils::GetFileInformation(path, info, resolve);
  if (known && IsRunFile(info.device, info.inode)) return;
  const bool included = CreateFileObject(path, type, archive)->AddToArchive(&archive);
  if (included && type == FT_DIRECTORY) Descend(path, archive);
}

// A directory that is its own ancestor through links ends here; its entry is written, once. With -r a link
// that took the directory's place is not followed either.
void CCreate::Descend(const std::string& directory, CArchive& archive) {
  const std::string pattern = WithWildcard(directory);
  strFileData data;
  strFileInformation info;
  const FindHandle handle = CUtils::FileFindOpen(pattern, &data, m_run.Options().resolveLinks);
  if (handle == nullptr || !CUtils::GetFileInformation(dirfd(handle.get()), info)) {
    ReportNotAvailable(archive, directory, SystemErrorText(LastSystemError()));
    return;
  }
  const Identity identity(info.device, info.inode);
  const bool isAncestor = std::any_of(m_levels.begin(), m_levels.end(),
                                      [&](const Level& level) { return level.identity == identity; });
  if (!isAncestor) PushLevel(archive, handle, data, pattern, identity);
}

std::unique_ptr<CDirEntry> CCreate::CreateFileObject(const std::string& name, int type, CArchive& archive) {
  switch (type) {
    case FT_DIRECTORY:
      return std::make_unique<CDirectory>(name, m_pack);
    case FT_REGULAR:
    case FT_DANGLING_LINK:  // reported as broken when its header cannot be filled
      return std::make_unique<CFile>(name, m_pack, archive.Witness() != nullptr && !m_run.ScanOnly());
    case FT_LINK:
      return std::make_unique<CLink>(name, m_pack);
    default:
      throw CExcept("TOLVEN: error creating file object for " + ShowText(name), kNoSystemError);
  }
}

}  // namespace tolven

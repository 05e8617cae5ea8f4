#include "archive/extract_target.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>
#include <utility>

#include "archive/format.h"
#include "cmdline/cmd_line.h"
#include "fileio/current_umask.h"
#include "fileio/utils.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {

namespace {

constexpr std::uint32_t kModeSettable = 0xFFF;  // without the file type
constexpr std::uint32_t kModeRights = 0777;

// True when making the name safe takes more from it than slashes and ".".
bool LosesComponents(const std::string& name) {
  return name.find(':') != std::string::npos || ("/" + name + "/").find("/../") != std::string::npos;
}

void MakeParents(CExtractRoot& root, const std::string& path) {
  std::string failed;
  if (!root.MakeParents(path, failed)) throw CCreateDirExcept(failed, LastSystemError());
}

}  // namespace

CExtractTarget::CExtractTarget(const CmdOptions& options, bool verified)
    : CExtractTarget(options, verified, AT_FDCWD) {}

CExtractTarget::CExtractTarget(const CmdOptions& options, bool verified, int directory)
    : m_options(options),
      m_verified(verified),
      m_umask(verified ? CurrentUmask() : 0),
      m_root(!options.noPathValidation, directory, true) {
  if (!m_root.IsOpen())
    throw CChgDirExcept(options.targetDir != nullptr ? options.targetDir : ".", LastSystemError());
}

std::string CExtractTarget::PathFor(const std::string& shownName) const {
  std::string path = shownName;
  if (m_options.noPathValidation) return path;
  CUtils::ValidateFilePath(path);
  // Two names may become one path this way: nobody should have to find out from a missing file.
  if (LosesComponents(shownName))
    PrintLine("TOLVEN: " + ShowText(shownName) + " is extracted as " + ShowText(path));
  return path;
}

std::uint32_t CExtractTarget::ModeToSet(std::uint32_t mode) const {
  return m_verified ? mode & kModeRights & ~m_umask : mode & kModeSettable;
}

std::unique_ptr<CPendingFile> CExtractTarget::OpenFile(const std::string& path, const std::string& name) {
  DropLink(path);
  auto file = std::make_unique<CPendingFile>(m_root, path);
  std::string failed;
  const CPendingFile::Step step = file->Create(failed);
  if (step == CPendingFile::Step::kNone) return file;
  const SystemError error = LastSystemError();
  if (step == CPendingFile::Step::kParents) throw CCreateDirExcept(failed, error);
  throw CExcept("TOLVEN: could not create a temporary file for " + ShowText(name), kErrorTemporaryFile,
                error);
}

void CExtractTarget::CommitFile(CPendingFile& file, std::uint32_t mode, std::int64_t mtime,
                                const std::string& name) {
  const CPendingFile::Step step = file.Commit(ModeToSet(mode), mtime);
  const SystemError error = LastSystemError();
  switch (step) {
    case CPendingFile::Step::kNone:
      return;
    case CPendingFile::Step::kMode:
      throw CChgModExcept(name, error);
    case CPendingFile::Step::kDate:
      throw CChgDateExcept(name, error);
    case CPendingFile::Step::kRename:
      // The rename takes away what is there, at the moment at which the new file is good.
      if (m_options.forceExtraction) {
        throw CExcept("TOLVEN: force mode (option -j): could not delete " + ShowText(name), kErrorForce,
                      error);
      }
      throw CExcept("TOLVEN: could not open for writing " + ShowText(name), error);
    default:
      throw CWriteExcept(name, error);
  }
}

void CExtractTarget::AddDirectory(const std::string& path, const std::string& name, std::uint32_t mode,
                                  std::int64_t mtime) {
  if (path.empty()) return;  // the extraction directory itself: it is not ours to change
  DropLink(path);
  bool created = false;
  std::string failed;
  if (!m_root.MakeDirectory(path, created, failed)) throw CCreateDirExcept(failed, LastSystemError());
  // A link that was there before stands for a directory of somebody else: its date and mode are not ours.
  struct stat status {};
  if (!created && m_root.Status(path, status) && S_ISLNK(status.st_mode)) return;
  const auto earlier = m_directories.find(path);
  const bool setMode = created || m_options.changeDirPermissions ||
                       (earlier != m_directories.end() && earlier->second.setMode);
  if (setMode && !created) m_root.OpenToOwner(path);
  m_directories.insert_or_assign(path, DirectoryRecord{name, ModeToSet(mode), mtime, setMode});
}

void CExtractTarget::AddLink(const std::string& path, const std::string& target, const std::string& name) {
  DropLink(path);
  MakeParents(m_root, path);
  m_linkAt[path] = m_links.size();
  m_links.push_back({path, target, name});
}

void CExtractTarget::DropLink(const std::string& path) {
  const auto found = m_linkAt.find(path);
  if (found == m_linkAt.end()) return;
  m_links[found->second].path.clear();
  m_linkAt.erase(found);
}

void CExtractTarget::Finish() {
  MakeLinks();
  FinishDirectories();
}

// Removes what a link may replace. What it may not, the making of the link reports.
bool CExtractTarget::ClearWayForLink(const std::string& path) {
  struct stat status {};
  if (m_verified || !m_root.Status(path, status) || S_ISDIR(status.st_mode)) return true;
  return m_root.Remove(path);
}

bool CExtractTarget::MakeLink(const LinkRecord& link) {
  std::string failed;
  if (!m_root.MakeParents(link.path, failed)) return false;
  if (m_verified && m_root.IsLinkTo(link.path, link.target)) return true;  // of an earlier extraction
  return ClearWayForLink(link.path) && m_root.MakeLink(link.target, link.path);
}

void CExtractTarget::MakeLinks() {
  for (const LinkRecord& link : m_links) {
    if (link.path.empty() || MakeLink(link)) continue;
    ReportLinkFailure(link.name);
    ++m_failedLinks;
  }
  DropLinks();
}

void CExtractTarget::DropLinks() {
  m_links.clear();
  m_linkAt.clear();
}

void CExtractTarget::FinishDirectories() {
  std::optional<CExcept> failure;  // the first; making another one would change the exit code
  const auto records = std::exchange(m_directories, {});
  for (auto place = records.rbegin(); place != records.rend(); ++place) {
    const auto& [path, record] = *place;
    if (!m_root.SetDirectoryDate(path, record.mtime) && !failure)
      failure = CChgDateExcept(record.name, LastSystemError());
    if (!record.setMode || m_root.SetDirectoryMode(path, record.mode) || failure) continue;
    failure = CChgModExcept(record.name, LastSystemError());
  }
  if (failure) throw CExcept(*failure);
}

void ReportLinkFailure(const std::string& name) {
  PrintLine("TOLVEN: could not create symbolic link (error 36). " + ShowText(name));
  CExcept::NotifyProcessor(kErrorLink);
}

}  // namespace tolven

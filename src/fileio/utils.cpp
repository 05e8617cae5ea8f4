#include "fileio/utils.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "report/except.h"
#include "report/show_text.h"
#include "report/system_error.h"

namespace tolven {
namespace {

bool IsLinkMode(std::uint32_t mode) {
  return (mode & S_IFMT) == S_IFLNK;
}

strFileInformation Information(const struct stat& status) {
  return {.mode = status.st_mode,
          .size = static_cast<std::uint64_t>(status.st_size),
          .mtime = status.st_mtime,
          .device = status.st_dev,
          .inode = status.st_ino};
}

static_assert(S_IFLNK == kAttrLink && S_IFREG == kAttrRegular,
              "the scan's attributes are the system's types");

}  // namespace

bool CUtils::ExistsFile(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

bool CUtils::DeleteFile(const std::string& path) {
  return std::remove(path.c_str()) == 0;
}

bool CUtils::GetSizeOfFile(const std::string& path, double& size) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return false;
  size = static_cast<double>(status.st_size);
  return true;
}

bool CUtils::CreateDir(const std::string& path) {
  return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

bool CUtils::SetFlAttr(const std::string& path, strFileData& data) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return false;
  switch (status.st_mode & S_IFMT) {
    case S_IFDIR:
      data.attributes = kAttrDirectory;
      break;
    case S_IFREG:
      data.attributes = kAttrRegular;
      break;
    case S_IFLNK:
      data.attributes = kAttrLink;
      break;
    default:
      data.attributes = 0;
  }
  return true;
}

int CUtils::DetermineFlType(const strFileData& data) {
  if ((data.attributes & kAttrDirectory) != 0) return FT_DIRECTORY;
  if (data.attributes == kAttrLink) return FT_LINK;
  return data.attributes == kAttrRegular ? FT_REGULAR : FT_OTHER;
}

int CUtils::TargetFileType(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    const bool isLink = lstat(path.c_str(), &status) == 0 && IsLinkMode(status.st_mode);
    return isLink ? FT_DANGLING_LINK : FT_MISSING;
  }
  if (S_ISREG(status.st_mode)) return FT_REGULAR;
  return S_ISDIR(status.st_mode) ? FT_DIRECTORY : FT_OTHER;
}

bool CUtils::IsLink(const std::string& path) {
  if (path.empty()) return false;
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) throw CAccessExcept(path, LastSystemError());
  return IsLinkMode(status.st_mode);
}

bool CUtils::GetFileInformation(const std::string& path, strFileInformation& info, bool followLinks) {
  struct stat status;
  const int result = followLinks ? stat(path.c_str(), &status) : lstat(path.c_str(), &status);
  if (result == 0) info = Information(status);
  return result == 0;
}

bool CUtils::GetFileInformation(int descriptor, strFileInformation& info) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return false;
  info = Information(status);
  return true;
}

bool CUtils::GetFileInformationWithLongFileName(const std::string& path, strFileInformation& info,
                                                bool followLinks) {
  return GetFileInformation(path, info, followLinks);
}

void CUtils::SetFileMode(const std::string& path, std::uint32_t mode) {
  if (IsLinkMode(mode)) return;
  if (chmod(path.c_str(), mode & 0xFFF) != 0) throw CChgModExcept(path, LastSystemError());
}

void CUtils::SetFileDateWrapper(const std::string& path, std::uint32_t mode, std::int64_t time) {
  if (IsLinkMode(mode)) return;
  const utimbuf times = {time, time};
  if (utime(path.c_str(), &times) != 0) throw CChgDateExcept(path, LastSystemError());
}

double CUtils::GetDiskFreeSpace(const std::string& path) {
  struct statvfs status;
  if (statvfs(path.c_str(), &status) != 0) return -1.0;
  // f_bsize is what the file system likes to be given at once; it counts in f_frsize.
  return static_cast<double>(std::uint64_t{status.f_bavail}) *
         static_cast<double>(std::uint64_t{status.f_frsize});
}

bool CUtils::CmpFS(const std::string& pathA, const std::string& pathB) {
  struct statvfs a;
  struct statvfs b;
  for (const auto& [path, status] : {std::pair(&pathA, &a), std::pair(&pathB, &b)}) {
    if (statvfs(path->c_str(), status) == 0) continue;
    const SystemError error = LastSystemError();
    throw CExcept("TOLVEN: statvfs returned error for " + ShowText(*path), error);
  }
  return a.f_fsid == b.f_fsid;
}

int CUtils::LastError() {
  return SystemErrorNumber(LastSystemError());
}

std::string CUtils::GetErrorText() {
  return SystemErrorText(LastSystemError());
}

int CUtils::GetSecurityInfoForEntry(const std::string& /*path*/) {
  return 0;
}

int CUtils::SetSecurityInfoForEntry(const std::string& /*path*/) {
  return 0;
}

bool CUtils::AddPrivileges() {
  return false;
}

bool CUtils::EnablePrivilege() {
  return false;
}

bool CUtils::SetMode(const std::string& /*path*/) {
  return false;
}

bool CDiskProbe::Exists(const std::string& path) const {
  return access(path.c_str(), F_OK) == 0;
}

bool CDiskProbe::GetSizeOfFile(const std::string& path, double& size) const {
  return CUtils::GetSizeOfFile(path, size);
}

double CDiskProbe::GetDiskFreeSpace(const std::string& path) const {
  return CUtils::GetDiskFreeSpace(path);
}

bool CDiskProbe::CmpFS(const std::string& pathA, const std::string& pathB) const {
  return CUtils::CmpFS(pathA, pathB);
}

void CPathFormatter::ReplaceDelimiter(std::string& path) {
  std::replace(path.begin(), path.end(), '/', '\\');
}

std::string CPathFormatter::ToAbsWinFormatLongName(std::string path) {
  ReplaceDelimiter(path);
  return path;
}

}  // namespace tolven

#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "report/space_info.h"

namespace tolven {

// Longest path or name buffer of the program, terminator included.
inline constexpr std::size_t kNameBufferSize = 4352;

// Attribute bits of a directory-scan result, as found by lstat.
inline constexpr std::uint32_t kAttrDirectory = 0x10;
inline constexpr std::uint32_t kAttrRegular = 0x8000;
inline constexpr std::uint32_t kAttrLink = 0xA000;

// One directory-scan result.
struct strFileData {
  std::uint32_t attributes = 0;
  std::string directory;  // being scanned, ends in "/"
  std::string pattern;    // name pattern being matched
  std::array<char, kNameBufferSize> name{};
};

// What the file system says of one object.
struct strFileInformation {
  std::uint32_t mode = 0;  // type and permission bits
  std::uint64_t size = 0;
  std::int64_t mtime = 0;  // seconds since 1970-01-01 UTC
  dev_t device = 0;
  ino_t inode = 0;
};

// File-type codes of DetermineFlType and TargetFileType.
enum FileType : int {
  FT_DIRECTORY = 0,
  FT_REGULAR = 1,
  FT_LINK = 3,
  FT_DANGLING_LINK = 4,
  FT_OTHER = 6,  // device, pipe, socket
  FT_MISSING = 8,
};

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};
using FindHandle = std::unique_ptr<DIR, DirectoryCloser>;

// Every question to the file system. Queries answer with false, -1.0 or a code and construct no exception;
// functions that change the file system throw the exception named with them.
class CUtils {
 public:
  static bool ExistsFile(const std::string& path);  // stat: links are followed
  static bool DeleteFile(const std::string& path);
  static bool GetSizeOfFile(const std::string& path, double& size);
  // 0755; true also when the directory already exists.
  static bool CreateDir(const std::string& path);
  // Sets data.attributes from lstat; false when that fails.
  static bool SetFlAttr(const std::string& path, strFileData& data);
  static int DetermineFlType(const strFileData& data);
  static int TargetFileType(const std::string& path);
  // False for an empty path; throws CAccessExcept when lstat fails.
  static bool IsLink(const std::string& path);
  static bool GetFileInformation(const std::string& path, strFileInformation& info, bool followLinks);
  static bool GetFileInformation(int descriptor, strFileInformation& info);
  static bool GetFileInformationWithLongFileName(const std::string& path, strFileInformation& info,
                                                 bool followLinks);
  // Nothing for a link mode (0xA000); else chmod(path, mode & 0xFFF). Throws CChgModExcept.
  static void SetFileMode(const std::string& path, std::uint32_t mode);
  // Nothing for a link mode; else access and modification time. Throws CChgDateExcept.
  static void SetFileDateWrapper(const std::string& path, std::uint32_t mode, std::int64_t time);
  // Bytes available to unprivileged users; -1.0 when statvfs fails.
  static double GetDiskFreeSpace(const std::string& path);
  // True iff both lie on one file system. Throws CExcept (100) when statvfs fails.
  static bool CmpFS(const std::string& pathA, const std::string& pathB);
  static int LastError();
  static std::string GetErrorText();

  // Directory scan with "*" and "?" in the last component, in the order the system delivers. "." and ".." are
  // ordinary entries. Null: the directory cannot be opened (errno set), or nothing matches (errno 0).
  // Throws CStatExcept for a match whose lstat fails.
  static FindHandle FileFindFirst(const std::string& pattern, strFileData* data);
  // False at the end, with errno 0 (a failed read leaves errno set).
  static bool FileFindNext(const FindHandle& handle, strFileData* data);
  static bool FileFindClose(FindHandle& handle);
  // The scan without a look at what it finds, for callers that cannot let one lost name end it: opens the
  // pattern's directory (`followLink`: also when its last component is a link), then fills in one matching
  // name after the other. Null, or false with errno 0 at the end, as above.
  static FindHandle FileFindOpen(const std::string& pattern, strFileData* data, bool followLink = true);
  static bool FileFindName(const FindHandle& handle, strFileData* data);

  // Whole name against whole pattern: "?" one character, "*" any run. Iterative: linear memory, no
  // exponential patterns.
  static bool StringMatch(const char* name, const char* pattern);
  // Makes a stored path safe to extract: relative, without "." and ".." components.
  static void ValidateFilePath(std::string& path);

  // Operations of another platform: they do nothing and return 0 or false.
  static int GetSecurityInfoForEntry(const std::string& path);
  static int SetSecurityInfoForEntry(const std::string& path);
  static bool AddPrivileges();
  static bool EnablePrivilege();
  static bool SetMode(const std::string& path);
};

// "." or "..": every directory has them, and nobody means them.
bool IsDotName(std::string_view name);

// Appends every directory entry that matches `pattern` to `container`, with the pattern's directory in front.
// With `ignoreCase` the names are compared upper-cased. 0, or the system error number.
int AddNamesToContainer(std::vector<std::string>& container, const std::string& pattern, bool ignoreCase);

// The real disk behind the space report.
class CDiskProbe : public IDiskProbe {
 public:
  bool Exists(const std::string& path) const override;
  bool GetSizeOfFile(const std::string& path, double& size) const override;
  double GetDiskFreeSpace(const std::string& path) const override;
  bool CmpFS(const std::string& pathA, const std::string& pathB) const override;
};

// "/" to "\" for the other platform; nothing here calls it.
class CPathFormatter {
 public:
  static void ReplaceDelimiter(std::string& path);
  static std::string ToAbsWinFormatLongName(std::string path);
};

}  // namespace tolven

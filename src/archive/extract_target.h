#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fileio/extract_root.h"
#include "fileio/pending_file.h"

namespace tolven {

struct CmdOptions;

// What an extraction keeps for one archive: the directory that everything goes below, the directories that
// get their dates and modes at the end, and the links, which are made after the files that they could
// capture.
class CExtractTarget {
 public:
  // Files that this run extracted and found as they were signed, by device and inode. A signature vouches for
  // files but not for links: no link may take the place of one of these.
  using VerifiedFiles = std::set<std::pair<dev_t, ino_t>>;

  // Takes the current directory as the root. `options` and `verified` must outlive the object.
  CExtractTarget(const CmdOptions& options, VerifiedFiles& verified);

  // Where an entry of that name goes: made safe by ValidateFilePath, unless -xnopvalid is given. Prints a
  // line when that takes a drive prefix or ".." away.
  std::string PathFor(const std::string& shownName) const;
  // Makes missing parents and opens the temporary file. `name` is what messages say. CCreateDirExcept, or 28.
  std::unique_ptr<CPendingFile> OpenFile(const std::string& path, const std::string& name);
  // Gives the file its mode, date and name. CWriteExcept, CChgModExcept, CChgDateExcept, or that it could not
  // be opened for writing (in force mode: that it could not be deleted, 28): something stands in its place.
  // `verified`: its digest was found right.
  void CommitFile(CPendingFile& file, std::uint32_t mode, std::int64_t mtime, const std::string& name,
                  bool verified);
  // Makes the directory now, closed to others, or opens one that is there to its owner; date and mode follow
  // in Finish. Of two entries of one path the later one counts.
  void AddDirectory(const std::string& path, const std::string& name, std::uint32_t mode, std::int64_t mtime);
  // Makes missing parents and remembers the link for Finish. A later entry of the same path takes its place.
  void AddLink(const std::string& path, const std::string& target, const std::string& name);
  // Makes the links, then sets the directories' dates and modes from the bottom up. A link that cannot be
  // made is reported and counted; a directory's failure is CChgDateExcept or CChgModExcept, after all were
  // tried.
  void Finish();
  // Forgets the links: of an archive that is not what was signed no more is made.
  void DropLinks();
  unsigned long FailedLinks() const { return m_failedLinks; }

 private:
  struct DirectoryRecord {
    std::string name;
    std::uint32_t mode;
    std::int64_t mtime;
    bool setMode;
  };
  struct LinkRecord {
    std::string path;
    std::string target;
    std::string name;
  };
  void DropLink(const std::string& path);
  bool ClearWayForLink(const std::string& path);
  bool MakeLink(const LinkRecord& link);
  void MakeLinks();
  void FinishDirectories();

  const CmdOptions& m_options;
  VerifiedFiles& m_verified;
  CExtractRoot m_root;
  std::map<std::string, DirectoryRecord> m_directories;  // by path: what is below one comes behind it
  std::vector<LinkRecord> m_links;                       // an empty path: replaced by a later entry
  std::unordered_map<std::string, std::size_t> m_linkAt;
  unsigned long m_failedLinks = 0;
};

// Prints the line of a link that could not be made and sets its exit code.
void ReportLinkFailure(const std::string& name);

}  // namespace tolven

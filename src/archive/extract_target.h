#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
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
  // Takes the current directory as the root. `options` must outlive the object. `verified`: the archive's
  // files are checked against a signature. It vouches for their content only, so what else the archive says
  // gets no power: modes lose the set-id and sticky bits and pass the umask, and no link takes the place of
  // anything.
  CExtractTarget(const CmdOptions& options, bool verified);
  // The same with an open directory as the root.
  CExtractTarget(const CmdOptions& options, bool verified, int directory);

  // Where an entry of that name goes: made safe by ValidateFilePath, unless -xnopvalid is given. Prints a
  // line when that takes a drive prefix or ".." away.
  std::string PathFor(const std::string& shownName) const;
  // Makes missing parents and opens the temporary file. `name` is what messages say. CCreateDirExcept, or 28.
  std::unique_ptr<CPendingFile> OpenFile(const std::string& path, const std::string& name);
  // Gives the file its mode, date and name. CWriteExcept, CChgModExcept, CChgDateExcept, or that it could not
  // be opened for writing (in force mode: that it could not be deleted, 28): something stands in its place.
  void CommitFile(CPendingFile& file, std::uint32_t mode, std::int64_t mtime, const std::string& name);
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
  std::uint32_t ModeToSet(std::uint32_t mode) const;
  bool ClearWayForLink(const std::string& path);
  bool MakeLink(const LinkRecord& link);
  void MakeLinks();
  void FinishDirectories();

  const CmdOptions& m_options;
  bool m_verified;
  std::uint32_t m_umask;
  CExtractRoot m_root;
  std::map<std::string, DirectoryRecord> m_directories;  // by path: what is below one comes behind it
  std::vector<LinkRecord> m_links;                       // an empty path: replaced by a later entry
  std::unordered_map<std::string, std::size_t> m_linkAt;
  unsigned long m_failedLinks = 0;
};

// Prints the line of a link that could not be made and sets its exit code.
void ReportLinkFailure(const std::string& name);

}  // namespace tolven

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "fileio/extract_root.h"
#include "fileio/file_stream.h"
#include "fileio/remove_on_signal.h"

namespace tolven {

struct CmdOptions;

// A file on its way to its name: data goes into a temporary file beside the target, which takes the name only
// when everything about it is right. Destroyed before that, it leaves nothing behind.
class CPendingFile {
 public:
  // `path` below `root`; `name` is what messages say. CCreateDirExcept, or 28 when no file can be made.
  CPendingFile(CExtractRoot& root, const std::string& path, const std::string& name);
  ~CPendingFile();
  CPendingFile(const CPendingFile&) = delete;
  CPendingFile& operator=(const CPendingFile&) = delete;

  CFileStream& Stream() { return m_stream; }
  const std::string& TempName() const { return m_tempName; }
  // Closes and removes the temporary file. True iff it is gone.
  bool Discard();
  // Mode and date through the descriptor, an explicit close, and the rename.
  void Commit(std::uint32_t mode, std::int64_t mtime);

 private:
  CExtractRoot& m_root;
  std::string m_path;
  std::string m_name;
  std::string m_tempName;
  CFileStream m_stream;
  std::optional<CRemoveOnSignal> m_guard;
};

// What an extraction keeps for one archive: the directory that everything goes below, the directories that get
// their dates and modes at the end, and the links, which are made after the files that they could capture.
class CExtractTarget {
 public:
  // Takes the current directory as the root. `options` must outlive the object.
  explicit CExtractTarget(const CmdOptions& options);

  // Where an entry of that name goes: made safe by ValidateFilePath, unless -xnopvalid is given. Prints a line when
  // that takes a drive prefix or ".." away.
  std::string PathFor(const std::string& shownName) const;
  // Makes missing parents, removes an existing file in force mode, and opens the temporary file.
  std::unique_ptr<CPendingFile> OpenFile(const std::string& path, const std::string& name);
  // Makes the directory now; date and mode follow in Finish.
  void AddDirectory(const std::string& path, const std::string& name, std::uint32_t mode, std::int64_t mtime);
  // Makes missing parents and remembers the link for Finish. A later entry of the same path takes its place.
  void AddLink(const std::string& path, const std::string& target, const std::string& name);
  // Makes the links, then sets the directories' dates and modes in reverse order. A link that cannot be made is
  // reported and counted; a directory's failure is CChgDateExcept or CChgModExcept, after all were tried.
  void Finish();
  unsigned long FailedLinks() const { return m_failedLinks; }

 private:
  struct DirectoryRecord {
    std::string path;
    std::string name;
    std::uint32_t mode;
    std::int64_t mtime;
    bool created;
  };
  struct LinkRecord {
    std::string path;
    std::string target;
    std::string name;
  };
  void DropLink(const std::string& path);
  bool MakeLink(const LinkRecord& link);
  void MakeLinks();
  void FinishDirectories();

  const CmdOptions& m_options;
  CExtractRoot m_root;
  std::vector<DirectoryRecord> m_directories;
  std::vector<LinkRecord> m_links;  // an empty path: replaced by a later entry
  std::unordered_map<std::string, std::size_t> m_linkAt;
  unsigned long m_failedLinks = 0;
};

// Prints the line of a link that could not be made and sets its exit code.
void ReportLinkFailure(const std::string& name);

}  // namespace tolven

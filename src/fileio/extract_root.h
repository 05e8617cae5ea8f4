#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fileio/unique_fd.h"
#include "report/run_status.h"

namespace tolven {

// The one owner of path safety on disk: every object that an extraction creates is reached through the
// descriptor of the extraction directory. A confined root follows a link on the way to a parent directory
// only when the link was there before the run and leads to a place below the root; it never follows a link
// that this run made. An unconfined root (-xnopvalid) resolves like any program, absolute names and ".."
// included.
//
// Paths are as CUtils::ValidateFilePath leaves them (unconfined: as stored). Functions return true on success
// and leave errno set on failure (ELOOP or EXDEV for a path that would leave the root).
class CExtractRoot {
 public:
  // Opens the current directory. Check with IsOpen. Without `useOpenat2` every path is resolved component by
  // component, as on a kernel that lacks the call: for tests.
  explicit CExtractRoot(bool confined, bool useOpenat2 = true)
      : CExtractRoot(confined, AT_FDCWD, useOpenat2) {}
  // The same for an open directory.
  CExtractRoot(bool confined, int directory, bool useOpenat2);
  // Forgets the links made so far. They are known to every root of a run: an archive must not write through
  // the links of the one before it.
  static void BeginRun() { RunStatus::Current().links.clear(); }
  [[nodiscard]] bool IsOpen() const { return static_cast<bool>(*m_root); }

  // Makes every missing directory on the way to `path`'s last component, 0755. On failure `failed` names the
  // directory that could not be made or entered.
  [[nodiscard]] bool MakeParents(const std::string& path, std::string& failed);
  // Makes the directory `path`, parents included: 0700, so that nobody else reaches what is written into it
  // before it has its own mode. True also when a directory is there already; `created` tells which. One that
  // MakeParents made counts as created, once, and is closed now. An existing link to a directory counts as
  // one under the rule above.
  [[nodiscard]] bool MakeDirectory(const std::string& path, bool& created, std::string& failed);
  // Gives the owner of a directory that was there before all rights: a read-only one of an earlier extraction
  // must not refuse this one. Only for a directory whose mode is set in the end.
  void OpenToOwner(const std::string& path);
  // Creates an exclusive temporary file (0600) beside `path`, named by `path` and six characters; a long last
  // component is shortened in the template only. Returns the descriptor, open for writing, and its path.
  [[nodiscard]] UniqueFd CreateTemp(const std::string& path, std::string& tempPath);
  // The directory that `path`'s last component belongs in; it stays open as long as somebody has it. Null on
  // failure.
  [[nodiscard]] std::shared_ptr<const UniqueFd> ShareParent(const std::string& path);
  // Moves the temporary file onto `path`. A directory in its place is a failure.
  [[nodiscard]] bool Rename(const std::string& tempPath, const std::string& path);
  // Removes a non-directory, never following it.
  [[nodiscard]] bool Remove(const std::string& path);
  // lstat.
  [[nodiscard]] bool Status(const std::string& path, struct stat& status);
  // True iff `path` is a symbolic link to just that target.
  [[nodiscard]] bool IsLinkTo(const std::string& path, const std::string& target);
  // Makes a symbolic link and remembers it as one never to follow in this run.
  [[nodiscard]] bool MakeLink(const std::string& target, const std::string& path);
  // For a directory that still is one (a link in its place is a failure): date, then mode & 0xFFF.
  [[nodiscard]] bool SetDirectoryDate(const std::string& path, std::int64_t mtime);
  [[nodiscard]] bool SetDirectoryMode(const std::string& path, std::uint32_t mode);

 private:
  struct Split {
    std::string parent;  // empty: the root; never ends in "/" unless it is "/"
    std::string name;    // last component; empty when `path` names the root itself
  };
  static Split SplitPath(const std::string& path);
  // A last component that can name a file: not empty, "." or "..".
  [[nodiscard]] bool SplitFilePath(const std::string& path, Split& split) const;

  // The directory `path`, borrowed until the next call; -1 on failure. The last one is kept: consecutive
  // files of one directory cost no resolution.
  [[nodiscard]] int OpenParent(const std::string& path);
  void KeepParent(const std::string& path, UniqueFd fd, bool throughLink);
  // Called when a non-directory is made, replaced or removed. Only a path through a link can change by that.
  void ForgetParentThroughLink();

  // The three resolvers. `throughLink` is set when a link was followed on the way.
  [[nodiscard]] UniqueFd OpenDirectory(const std::string& path, bool& throughLink);
  [[nodiscard]] UniqueFd OpenBeneath(const std::string& path);
  [[nodiscard]] UniqueFd WalkBeneath(std::string_view path, bool& throughLink) const;

  // Opens or makes one component of a path on the way down; see MakeParents.
  [[nodiscard]] UniqueFd EnterOrMake(int fd, const std::string& component, const std::string& prefix,
                                     bool& throughLink);
  // True when `path` is a directory that MakeParents made; it is then closed and no longer counts as that.
  [[nodiscard]] bool CloseMadeParent(const std::string& path);
  // Opens the directory itself for changing its attributes, following nothing.
  [[nodiscard]] UniqueFd OpenForAttributes(const std::string& path);

  // Six characters nobody can foresee.
  [[nodiscard]] bool DrawSuffix(std::string& suffix);

  bool m_confined;
  bool m_useOpenat2;
  // Drawn for many names at once; no more than a signal leaves whole.
  std::array<unsigned char, 252> m_random;
  std::size_t m_randomLeft = 0;
  std::shared_ptr<const UniqueFd> m_root;
  std::shared_ptr<const UniqueFd> m_parent;
  std::string m_parentPath;
  bool m_parentThroughLink = false;
  std::set<std::pair<dev_t, ino_t>> m_madeParents;
};

}  // namespace tolven

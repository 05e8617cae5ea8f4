#pragma once

#include <string>
#include <vector>

#include "oldarchive/old_header.h"

namespace tolven {

// An archive's names are nobody's word: whoever made it chose them. They are transformed first and made safe
// last, so that no transformation can undo the safety.

// How stored names become names on disk.
struct PathSettings {
  bool flat = false;       // only the last component
  bool lowerCase = false;  // ASCII letters
  bool validate = true;    // keep every name below the extraction directory
};

// Divides at the last "/": `directory` without it ("/" itself for a name in the root), `file` behind it.
void SplitPath(const std::string& path, std::string& directory, std::string& file);

// Drops doubled separators, "." components and a trailing "/". ".." stays. Nothing left: ".".
std::string NormalizePath(const std::string& path);

// The name on disk of a stored name: the flat and lower-case settings. Not yet safe; see CreateFilename.
std::string TransformPath(const PathSettings& settings, const std::string& name);

// The path of `info` relative to the extraction directory, made safe unless the settings say otherwise. The
// directory itself is not joined in front: CExtractRoot holds it open, so that nothing can be swapped on the
// way. A directory that is the extraction directory itself gets ".". False when no name can be made.
[[nodiscard]] bool CreateFilename(const PathSettings& settings, const FileInfo& info, std::string& path);

// The names that a run selects entries by. An archive may have as many entries as the list has names, so
// names without "*" and "?" are looked up and only patterns are tried one by one.
class NameSelection {
 public:
  explicit NameSelection(const std::vector<std::string>& names);
  // True iff one of the names is `name` or a directory on the way to it, or every entry is selected because
  // there are no names at all.
  [[nodiscard]] bool Selects(const std::string& name) const;

 private:
  bool m_all;
  std::vector<std::string> m_exact;     // sorted, without those below another one
  std::vector<std::string> m_patterns;  // each twice: for the name, and for what lies below it
};

// True iff `names` select the entry by its stored name or by its name on disk.
[[nodiscard]] bool DoesFilenameMatch(const NameSelection& names, const FileInfo& info);

}  // namespace tolven

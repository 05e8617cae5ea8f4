#pragma once

#include <string>
#include <vector>

#include "oldarchive/app_data.h"

namespace tolven {

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

// True iff one of `names` (with "*" and "?") matches the entry's stored name or name on disk, or a directory
// on the way to it. An empty list matches everything.
[[nodiscard]] bool DoesFilenameMatch(const std::vector<std::string>& names, const FileInfo& info);

}  // namespace tolven

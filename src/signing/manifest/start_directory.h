#pragma once

#include <string>

namespace tolven {

// The path as it was meant where the run began (see ManifestSetStartDirectory); as it stands when it is
// absolute or no start directory is known.
std::string InStartDirectory(const std::string& path);

}  // namespace tolven

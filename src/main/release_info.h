#pragma once

#include <string>

namespace tolven {

// What one single argument prints: version, formats and build, on one screen.
std::string ReleaseInfo();

}  // namespace tolven

#include "signing/manifest/start_directory.h"

#include <cstdlib>

#include "signing/crypto/secudir.h"
#include "signing/manifest/manifest.h"

namespace tolven {
namespace {

std::string& StartDirectory() {
  static std::string directory;
  return directory;
}

}  // namespace

std::string InStartDirectory(const std::string& path) {
  const std::string& directory = StartDirectory();
  return directory.empty() || path.starts_with('/') ? path : directory + "/" + path;
}

void ManifestSetStartDirectory(const std::string& directory) {
  StartDirectory() = directory;
  // The library reads the variable itself, whenever it looks for a profile.
  Set_SECUDIR_Path(nullptr);
  const char* secudir = std::getenv("SECUDIR");
  if (secudir != nullptr && secudir[0] != '\0') setenv("SECUDIR", InStartDirectory(secudir).c_str(), 1);
}

}  // namespace tolven

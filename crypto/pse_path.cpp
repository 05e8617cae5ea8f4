#include <sys/stat.h>

#include <cstdlib>

#include "pse.h"

namespace tolven::crypto {
namespace {

// The names by which the program trusts by itself. A file of that name that happens to lie in the working
// directory (which may be somebody's delivery) must never become their trust.
bool IsReserved(const std::string& name) {
  return name == "QELverify" || name == "QELvalidation";
}

bool FileExists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

std::string PsePath(const std::string& name) {
  if (name.empty()) return {};
  if (name.find('/') != std::string::npos) return name;
  if (!IsReserved(name) && FileExists(name)) return name;
  const char* directory = std::getenv("SECUDIR");
  if (directory == nullptr || directory[0] == '\0') return {};
  return std::string(directory) + "/" + name + ".pse";
}

}  // namespace tolven::crypto

#include "signing/crypto/secudir.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "report/show_text.h"

namespace tolven {
namespace {

constexpr char kVariable[] = "SECUDIR=";

// putenv does not copy: this text is part of the environment until the process ends, so nothing ever frees
// it.
char* global_var_SECUDIR = nullptr;

std::string& StartDirectory() {
  static std::string directory;
  return directory;
}

void Say(SecudirMessageCallback message, const std::string& text) {
  if (message != nullptr) message(text.c_str());
}

std::string DefaultLocation() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] != '\0') return std::string(home) + "/.tolven/sec";
  passwd entry{};
  passwd* found = nullptr;
  char buffer[4096];
  if (getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr && found->pw_dir[0] != '\0') {
    return std::string(found->pw_dir) + "/.tolven/sec";
  }
  return "/etc/tolven/sec";
}

void PutSecudir(const std::string& value, SecudirMessageCallback message) {
  const std::size_t length = sizeof kVariable + value.size();  // sizeof counts the NUL
  // Only reached while our text is not in the environment (or this is its first time), so it may move.
  char* grown = static_cast<char*>(std::realloc(global_var_SECUDIR, length));
  if (grown == nullptr) {
    Say(message, FormatText("Uh-Oh! realloc(global_var_SECUDIR, %d) failed!, can not putenv(SECUDIR=...)!\n",
                            static_cast<int>(length)));
    return;
  }
  global_var_SECUDIR = grown;
  std::memcpy(grown, kVariable, sizeof kVariable - 1);
  std::memcpy(grown + sizeof kVariable - 1, value.c_str(), value.size() + 1);
  putenv(grown);
}

}  // namespace

void Set_SECUDIR_Path(SecudirMessageCallback message) {
  const char* present = std::getenv("SECUDIR");
  const bool found = present != nullptr && present[0] != '\0';
  if (found) Say(message, "= found SECUDIR environment variable\n");

  std::string value = found ? present : DefaultLocation();
  const bool tooLong = value.size() > kSecudirLimit;
  if (tooLong) {
    Say(message,
        FormatText("*** ERROR: length of SECUDIR (%lu) exteeds %lu chars, truncating it!",
                   static_cast<unsigned long>(value.size()), static_cast<unsigned long>(kSecudirLimit)));
    value.resize(kSecudirLimit);
  }
  if (!found || tooLong) PutSecudir(value, message);
}

void SetStartDirectory(const std::string& directory) {
  StartDirectory() = directory;
  // The library reads the variable itself, whenever it looks for a profile.
  Set_SECUDIR_Path(nullptr);
  const char* secudir = std::getenv("SECUDIR");
  if (secudir != nullptr && secudir[0] != '\0') setenv("SECUDIR", InStartDirectory(secudir).c_str(), 1);
}

std::string InStartDirectory(const std::string& path) {
  const std::string& directory = StartDirectory();
  return directory.empty() || path.starts_with('/') ? path : directory + "/" + path;
}

}  // namespace tolven

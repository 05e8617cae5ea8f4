#include "signing/crypto/dkv_library_file.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#ifndef TOLVEN_PRIVATE_LIBRARY_DIR
#define TOLVEN_PRIVATE_LIBRARY_DIR "../lib/tolven"
#endif

namespace tolven {
namespace {

// The directory of the file this code is part of: the program, or the shared object that embeds it. The
// dynamic linker knows a shared object's path; it gives the program itself an empty one.
std::filesystem::path OwnDirectory() {
  std::error_code error;
  Dl_info info{};
  void* extra = nullptr;
  const void* here = reinterpret_cast<const void*>(&OpenDkvLibrary);
  if (dladdr1(here, &info, &extra, RTLD_DL_LINKMAP) != 0 && extra != nullptr) {
    const char* object = static_cast<const link_map*>(extra)->l_name;
    if (object != nullptr && object[0] != '\0') {
      return std::filesystem::canonical(object, error).parent_path();
    }
  }
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

void* Open(const std::string& name) {
  return dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
}

}  // namespace

void* OpenDkvLibrary(const char* libraryName) {
  const std::string name = libraryName == nullptr ? "" : libraryName;
  // dlopen takes an empty name for the program itself, which is no library of ours.
  if (name.empty()) return nullptr;
  if (name.find('/') != std::string::npos) return Open(name);

  // Our own places come before LD_LIBRARY_PATH and the system's directories, which dlopen would ask first.
  const std::filesystem::path own = OwnDirectory();
  if (!own.empty()) {
    for (const auto& directory : {own, own / TOLVEN_PRIVATE_LIBRARY_DIR}) {
      const std::string path = (directory / name).string();
      if (access(path.c_str(), F_OK) == 0) return Open(path);
    }
  }
  return Open(name);
}

}  // namespace tolven

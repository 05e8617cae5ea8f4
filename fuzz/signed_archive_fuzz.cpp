// Any bytes as a signed archive, extracted with verification. Whatever comes of it: when the program says
// that all is well, the regular files are those that the world's signer signed, no more and no less.
#include <dlfcn.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "fuzz/program.h"

namespace {

namespace fs = std::filesystem;

std::map<std::string, std::string> Contents(const fs::path& root) {
  std::map<std::string, std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file() || entry.is_symlink()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().lexically_relative(root)] = {std::istreambuf_iterator<char>(file), {}};
  }
  return files;
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  // Held open: the counters of a library that comes and goes would be written to after it went.
  static const bool held = dlopen(LIBRARY, RTLD_NOW) != nullptr && setenv("SECUDIR", WORLD "sec", 1) == 0;
  static const auto expected = Contents(WORLD "signed");
  static const std::string target = "/dev/shm/tolven-signed-" + std::to_string(getpid());
  fs::create_directory(target);
  const MemoryFile archive(input.Rest());
  const std::string line = "f\t" + archive.Name() + "\t-L\t" LIBRARY;
  if (RunProgram("-xV" + line + "\t-R\t" + target) == 0) {
    Require(held && Contents(target) == expected);
    Require(RunProgram("-dV" + line) == 0);
  }
  fs::remove_all(target);
}

// Any bytes as an archive of either format, extracted over what is there already. Nothing may change outside
// of the target directory. First byte: options. Where the input names SANDBOX, the archive gets the name of
// the directory around the target, so that absolute names can lead there.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "fuzz/program.h"

namespace {

namespace fs = std::filesystem;
using tolven::fuzz::Require;

constexpr std::string_view kSandbox = "/dev/shm/tolven-fuzz-0000000";

void Write(const fs::path& path, std::string_view text) {
  std::ofstream(path) << text;
}

// SANDBOX/outside is what must stay as it is, SANDBOX/in the target.
class Sandbox {
 public:
  // Named by the process, in digits: -lower must not lead past it.
  Sandbox() : m_path(kSandbox) {
    const std::string process = std::to_string(getpid());
    m_path.replace(m_path.size() - process.size(), process.size(), process);
    fs::create_directories(m_path + "/outside/directory");
    Write(m_path + "/outside/file", "precious");
    fs::create_symlink("file", m_path + "/outside/link");
  }
  ~Sandbox() { Remove(m_path); }

  const std::string& Path() const { return m_path; }

  void Fill() const {
    fs::create_directories(m_path + "/in/old directory");
    Write(m_path + "/in/old file", "old");
    fs::create_symlink("../outside", m_path + "/in/away");
    fs::create_symlink("old directory", m_path + "/in/there");
  }
  void Empty() const { Remove(m_path + "/in"); }

  // Everything that can be said of what lies around the target.
  std::string Describe() const {
    std::string text;
    fs::recursive_directory_iterator entry(m_path);
    for (; entry != fs::recursive_directory_iterator(); ++entry) {
      struct stat status {};
      Require(lstat(entry->path().c_str(), &status) == 0);
      text += entry->path().string();
      if (entry->path().filename() == "in") {
        entry.disable_recursion_pending();
        continue;
      }
      for (const auto number :
           {std::uint64_t{status.st_ino}, std::uint64_t{status.st_mode},
            static_cast<std::uint64_t>(status.st_mtim.tv_sec),
            static_cast<std::uint64_t>(status.st_mtim.tv_nsec), static_cast<std::uint64_t>(status.st_size)}) {
        text += ' ' + std::to_string(number);
      }
    }
    return text;
  }

 private:
  static void Remove(const fs::path& path) {
    std::error_code failed;
    fs::remove_all(path, failed);
    if (!failed) return;
    // The archive's directories have the archive's modes.
    using Walk = fs::recursive_directory_iterator;
    for (const fs::directory_entry& entry : Walk(path, fs::directory_options::skip_permission_denied)) {
      if (entry.is_directory() && !entry.is_symlink()) fs::permissions(entry.path(), fs::perms::owner_all);
    }
    fs::remove_all(path);
  }

  std::string m_path;
};

}  // namespace

void tolven::fuzz::Run(Input input) {
  static const Sandbox sandbox;
  const unsigned choice = input.Byte();
  std::string bytes = input.Text();
  for (std::size_t at = 0; (at = bytes.find(kSandbox, at)) != std::string::npos; at += kSandbox.size()) {
    bytes.replace(at, kSandbox.size(), sandbox.Path());
  }
  const MemoryFile archive({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  std::string line = "-xf\t" + archive.Name() + "\t-R\t" + sandbox.Path() + "/in";
  if ((choice & 1) != 0) line += "\t-j";
  if ((choice & 2) != 0) line += "\t-flat";
  if ((choice & 4) != 0) line += "\t-lower";
  if ((choice & 8) != 0) line += "\t-P";
  if ((choice & 16) != 0) line += "\t-p\t7777";
  sandbox.Fill();
  const std::string before = sandbox.Describe();
  RunProgram(line);
  // Twice: what the first run left is what the second one finds.
  RunProgram(line);
  Require(sandbox.Describe() == before);
  sandbox.Empty();
}

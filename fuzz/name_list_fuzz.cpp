// The list files -A, -X and -T, the archive list, and the rules on names behind them.
// First byte: which file the rest is. A name that survives must look like one.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cmdline/cmd_line.h"
#include "fileio/utils.h"
#include "report/except.h"

namespace {

// A file in memory that opens by name.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : m_fd(memfd_create("list", MFD_CLOEXEC)) {
    if (m_fd < 0 || write(m_fd, data, size) != static_cast<ssize_t>(size)) std::abort();
    m_name = "/proc/self/fd/" + std::to_string(m_fd);
  }
  ~MemoryFile() { close(m_fd); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  const char* Name() const { return m_name.c_str(); }

 private:
  int m_fd;
  std::string m_name;
};

void Require(bool condition) {
  if (!condition) std::abort();
}

void CheckNames(const tolven::CCmdLine& line) {
  for (const std::string& name : line.GetNames()) {
    Require(!name.empty() && name != "." && name.find('\\') == std::string::npos);
    std::string path = name;
    tolven::CUtils::ValidateFilePath(path);
    Require(!path.starts_with('/') && ("/" + path + "/").find("/../") == std::string::npos);
    Require(tolven::CUtils::StringMatch(name.c_str(), "*"));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const MemoryFile file(data + 1, size - 1);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  tolven::CCmdLine line;
  tolven::CmdOptions& options = line.MutableOptions();
  switch (data[0] % 4) {
    case 0:
      options.includeFile = file.Name();
      break;
    case 1:
      options.excludeFile = file.Name();
      options.includeFile = file.Name();
      break;
    case 2:
      options.renameFile = file.Name();
      break;
    default:
      // Wildcards would make the result depend on the directory.
      if (text.find_first_of("*?") != std::string::npos) return 0;
      options.archiveText = text.c_str();
      for (const std::string& name : line.GetArchsToProcess()) Require(!name.empty());
      return 0;
  }
  try {
    line.MergeFileLists();
    line.ProcessRenameList();
    line.FillFileList();
    line.FormatFilenames();
    CheckNames(line);
  } catch (const tolven::CExcept& except) {
    Require(except.GetNumber() == 43);  // a wrong line of a rename file, and nothing else
  }
  return 0;
}

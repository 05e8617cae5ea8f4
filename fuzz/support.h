#pragma once

// What the targets share.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

namespace tolven::fuzz {

using Bytes = std::span<const std::uint8_t>;

inline void Require(bool condition, int line = __builtin_LINE(), const char* file = __builtin_FILE()) {
  if (condition) return;
  std::fprintf(stderr, "%s:%d: not as required\n", file, line);
  std::abort();
}

// True when the path, taken below a directory, stays there.
inline bool StaysBelow(const std::string& path) {
  return !path.starts_with('/') && ("/" + path + "/").find("/../") == std::string::npos;
}

// The input from front to back: first what sets the run, then what the reader gets. Zeros when it is used up.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : m_rest(data, size) {}
  unsigned Byte() {
    if (m_rest.empty()) return 0;
    const unsigned byte = m_rest[0];
    m_rest = m_rest.subspan(1);
    return byte;
  }
  Bytes Rest() const { return m_rest; }
  std::string Text() const { return {reinterpret_cast<const char*>(m_rest.data()), m_rest.size()}; }
  // Up to the next newline.
  std::string Line() {
    const std::string text = Text();
    const std::size_t end = std::min(text.find('\n'), text.size());
    m_rest = m_rest.subspan(std::min(end + 1, text.size()));
    return text.substr(0, end);
  }

 private:
  Bytes m_rest;
};

// What a target does with one input; each target is the file that defines it.
void Run(Input input);

// An argument vector that may be written to, as main gets it. Words are separated by tabs, so that they can
// hold blanks.
class Arguments {
 public:
  explicit Arguments(const std::string& line) : m_words{"TOLVEN"} {
    for (std::size_t at = 0; at < line.size();) {
      const std::size_t end = std::min(line.find('\t', at), line.size());
      // Through c_str: no argument holds a NUL.
      m_words.emplace_back(line.substr(at, end - at).c_str());
      at = end + 1;
    }
    for (std::string& word : m_words) m_pointers.push_back(word.data());
    m_pointers.push_back(nullptr);
  }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;
  int Count() const { return static_cast<int>(m_words.size()); }
  char* const* Vector() const { return m_pointers.data(); }
  char** Vector() { return m_pointers.data(); }

 private:
  std::vector<std::string> m_words;
  std::vector<char*> m_pointers;
};

// A file in memory that opens by name.
class MemoryFile {
 public:
  explicit MemoryFile(Bytes bytes) : m_fd(memfd_create("input", MFD_CLOEXEC)) {
    Require(m_fd >= 0 && write(m_fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    m_name = "/proc/self/fd/" + std::to_string(m_fd);
  }
  ~MemoryFile() { close(m_fd); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  const std::string& Name() const { return m_name; }

 private:
  int m_fd;
  std::string m_name;
};

}  // namespace tolven::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tolven::fuzz::Run({data, size});
  return 0;
}

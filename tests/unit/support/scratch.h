#pragma once

#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tolven::test {

// A fresh directory that goes away with the object.
class Scratch {
 public:
  Scratch() {
    std::string name = (std::filesystem::temp_directory_path() / "tolven-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch directory");
    m_path = std::filesystem::canonical(name);
  }
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::filesystem::path& Path() const { return m_path; }
  std::string File(std::string_view name) const { return (m_path / name).string(); }

  std::string Write(std::string_view name, std::string_view content) const {
    std::ofstream(File(name), std::ios::binary)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
    return File(name);
  }
  std::string Read(std::string_view name) const {
    std::ifstream in(File(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  // What the shell command printed on standard output, run inside the directory; throws unless it ended with
  // 0, so that an oracle that is missing never looks like one that agrees.
  std::string Run(const std::string& command) const {
    std::string output;
    if (const int status = RunStatus(command, &output); status != 0) {
      throw std::runtime_error("exit " + std::to_string(status) + ": " + command + "\n" + output);
    }
    return output;
  }

  // The exit status instead of the exception.
  int RunStatus(const std::string& command, std::string* output = nullptr) const {
    const std::string line = "cd '" + m_path.string() + "' && " + command;
    FILE* pipe = popen(line.c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("no shell");
    char buffer[4096];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) != 0;) {
      if (output != nullptr) output->append(buffer, n);
    }
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  }

 private:
  std::filesystem::path m_path;
};

}  // namespace tolven::test

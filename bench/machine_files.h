#pragma once

// Files of the machine at hand as samples for the engine's benchmarks.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tolven::bench {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kBlock = 65536;  // an archive compresses each of these on its own
inline constexpr std::size_t kSampleSize = 64 * kBlock;

// Files below `folder` with the given extension, in order of their names, until the sample is large enough.
inline Bytes ReadFiles(const char* folder, const std::string& extension) {
  namespace fs = std::filesystem;
  std::vector<fs::path> paths;
  std::error_code error;
  for (fs::recursive_directory_iterator walk(folder, fs::directory_options::skip_permission_denied, error),
       end;
       !error && walk != end; walk.increment(error)) {
    std::error_code ignored;
    if (walk->is_regular_file(ignored) && walk->path().string().find(extension) != std::string::npos) {
      paths.push_back(walk->path());
    }
  }
  std::sort(paths.begin(), paths.end());
  Bytes sample;
  for (const fs::path& path : paths) {
    if (sample.size() >= kSampleSize) break;
    std::ifstream file(path, std::ios::binary);
    const Bytes content(std::istreambuf_iterator<char>(file), {});
    // No single file decides the figure.
    sample.insert(sample.end(), content.begin(),
                  content.begin() + static_cast<std::ptrdiff_t>(std::min(content.size(), 8 * kBlock)));
  }
  sample.resize(std::min(sample.size(), kSampleSize) / kBlock * kBlock);
  return sample;
}

}  // namespace tolven::bench

#include "report/space_info.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "report/show_text.h"

namespace tolven {
namespace {

// A margin below one byte is a shortfall. Required sizes are whole bytes, so a pair below this holds a
// margin.
constexpr double kSmallestMargin = 1.0;

std::string ShownDirectory(const std::string& directory) {
  if (directory != ".") return directory;
  std::error_code error;
  const std::filesystem::path current = std::filesystem::current_path(error);
  return error ? "the current directory" : current.string();
}

std::string JoinPath(const std::string& base, const std::string& path) {
  std::string full = path;
  if (path.empty() || (path.front() != '/' && path.front() != '\\')) {
    full = base;
    if (full.back() != '/') full += '/';
    full += path;
  }
  std::replace(full.begin(), full.end(), '\\', '/');
  return full;
}

}  // namespace

CSpaceInfo::CSpaceInfo(const IDiskProbe& probe, std::string base)
    : m_probe(probe), m_base(base.empty() ? "." : std::move(base)) {}

void CSpaceInfo::AddInfo(const std::string& path, double size, bool replaces) {
  const std::string full = JoinPath(m_base, path);
  std::string directory;
  if (!GetAccessiblePath(full, directory)) return;
  double existing = 0.0;
  if (replaces && m_probe.GetSizeOfFile(full, existing)) size -= existing;
  if (!(size > 0.0)) return;

  // Equal text saves asking the disk: two pairs of one file system never stand side by side.
  auto found =
      std::find_if(m_pairs.begin(), m_pairs.end(), [&](const Pair& pair) { return pair.first == directory; });
  if (found == m_pairs.end()) {
    found = std::find_if(m_pairs.begin(), m_pairs.end(),
                         [&](const Pair& pair) { return m_probe.CmpFS(pair.first, directory); });
  }
  if (found == m_pairs.end()) {
    m_pairs.emplace_back(directory, size);
  } else {
    found->second += size;
  }
}

bool CSpaceInfo::GetAccessiblePath(const std::string& path, std::string& result) const {
  if (path.empty()) return false;
  std::string rest = path;
  for (auto cut = rest.find_last_of("/\\"); cut != std::string::npos; cut = rest.find_last_of("/\\")) {
    rest.resize(cut);
    if (!rest.empty() && m_probe.Exists(rest)) break;
  }
  result = rest.empty() && path.front() == '/' ? "/" : rest;
  return true;
}

bool CSpaceInfo::CmpSpcReqAvail() const {
  bool fits = true;
  for (Pair& pair : m_pairs) {
    // Found missing by an earlier evaluation: the required size is gone.
    if (pair.second < kSmallestMargin) {
      fits = false;
      continue;
    }
    const double margin = m_probe.GetDiskFreeSpace(pair.first) - pair.second;
    if (margin < kSmallestMargin) {
      pair.second = margin;
      fits = false;
    }
  }
  return fits;
}

void CSpaceInfo::PrintSpaceInfo(std::ostringstream& out, const Pair& pair) const {
  out << '\t' << std::fabs(pair.second) / 1024 << " KB in " << ShowText(ShownDirectory(pair.first)) << '\n';
}

std::string CSpaceInfo::GetInfoText() const {
  if (m_pairs.empty()) {
    return "The extraction does not require free disk space (maybe\n"
           "the extraction will only overwrite existing files of\n"
           "greater or equal size or the uncompressed size of each\n"
           "file in the archive is zero).\n";
  }
  std::ostringstream out;
  out.exceptions(std::ios::badbit);  // for want of memory: not a line that ends early
  const bool fits = CmpSpcReqAvail();
  out << (fits ? "The extraction requires approximately...\n" : "There is free space missing... \n");
  for (const Pair& pair : m_pairs) {
    if (fits || pair.second < 0.0) PrintSpaceInfo(out, pair);
  }
  return out.str();
}

}  // namespace tolven

#include <array>
#include <cerrno>
#include <span>

#include "fileio/file_stream.h"
#include "oldarchive/old_lines.h"
#include "oldarchive/old_messages.h"
#include "oldarchive/old_options.h"
#include "oldarchive/old_paths.h"

namespace tolven {
namespace {

constexpr std::size_t kPiece = 4096;

void AddName(const std::string& line, std::vector<std::string>& names) {
  constexpr const char* kBlanks = " \t\v\f\r";
  const std::size_t first = line.find_first_not_of(kBlanks);
  if (first == std::string::npos || line.starts_with('#')) return;
  names.push_back(NormalizePath(line.substr(first, line.find_last_not_of(kBlanks) + 1 - first)));
}

}  // namespace

bool DoAOption(AppData& app, int* error, std::string* text) {
  if (app.includeFile.empty()) return true;
  errno = 0;
  CFileStream file(app.includeFile, kOpenRead);
  if (!file.Open()) return SetErrorMessage(error, text, OLD_SYSTEM, app.includeFile);

  LineCutter cutter;
  std::string line;
  std::array<std::uint8_t, kPiece> piece;
  unsigned long done = 0;
  do {
    if (!file.Read(piece.data(), piece.size(), &done)) {
      return SetErrorMessage(error, text, OLD_SYSTEM, app.includeFile);
    }
    std::span<const std::uint8_t> bytes = std::span(piece).first(done);
    LineCutter::Result result = cutter.Next(bytes, line);
    for (; result == LineCutter::Result::kLine; result = cutter.Next(bytes, line)) AddName(line, app.names);
    if (result == LineCutter::Result::kBad) {
      return SetErrorMessage(error, text, OLD_INCLUDE_FORMAT, app.includeFile);
    }
  } while (done == piece.size());
  AddName(cutter.Rest(), app.names);  // the last line may lack its newline
  return true;
}

}  // namespace tolven

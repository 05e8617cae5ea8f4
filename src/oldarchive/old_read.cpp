#include "oldarchive/old_read.h"

#include <array>
#include <cerrno>
#include <span>

#include "oldarchive/old_header.h"
#include "oldarchive/old_listing.h"
#include "oldarchive/old_messages.h"
#include "oldarchive/old_paths.h"
#include "report/run_status.h"

namespace tolven {
namespace {

constexpr std::size_t kPiece = 8192;

bool OpenArchive(AppData& app) {
  errno = 0;
  long size = 0;
  app.archive.Open(app.archiveName, kOpenRead, 0);
  if (!app.archive.Open() || !app.archive.MoveToEnd() || !app.archive.GetPos(&size) ||
      !app.archive.SetPos(0)) {
    return false;
  }
  app.archiveSize = static_cast<std::uint64_t>(size);
  return true;
}

// False when reading itself fails; a file that ends inside the header leaves the parser at kReading.
bool FeedArchive(AppData& app, HeaderParser& parser, HeaderParser::State& state) {
  std::array<std::uint8_t, kPiece> piece;
  unsigned long done = 0;
  do {
    if (!app.archive.Read(piece.data(), piece.size(), &done)) return false;
    state = parser.Feed(std::span(piece).first(done));
  } while (state == HeaderParser::State::kReading && done == piece.size());
  return true;
}

bool ReadEntries(AppData& app, int* error, std::string* text) {
  HeaderParser parser;
  HeaderParser::State state = HeaderParser::State::kReading;
  if (!OpenArchive(app) || !FeedArchive(app, parser, state)) {
    return SetErrorMessage(error, text, OLD_SYSTEM, app.archiveName);
  }
  if (state == HeaderParser::State::kTimeError) {
    return SetErrorMessage(error, text, OLD_TIMESTAMP, std::string());
  }
  if (state != HeaderParser::State::kDone) {
    return SetErrorMessage(error, text, OLD_HEADER_FORMAT, app.archiveName);
  }
  app.entries = std::move(parser.Entries());
  return true;
}

}  // namespace

int ReadHeader(AppData& app, LocationInfo* location, int* error, std::string* text) {
  return WithoutExceptions(error, text, [&] {
    if (!ReadEntries(app, error, text)) return false;
    if (location == nullptr && app.command != 't') return true;
    return ForEachSelected(app, [&](const FileInfo& info) {
      if (location != nullptr && !AddLocation(*location, info, error, text)) return false;
      if (app.command != 't') return true;
      PrintLine(OldListingLine(info));
      ReportEntry(app, info);
      return true;
    });
  });
}

}  // namespace tolven

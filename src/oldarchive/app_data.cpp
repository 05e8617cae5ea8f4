#include "oldarchive/app_data.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <span>

#include "oldarchive/old_messages.h"
#include "report/except.h"
#include "report/log_man.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {
namespace {

constexpr std::size_t kPiece = 8192;
constexpr std::uint32_t kSetUserId = 04000;
constexpr std::uint32_t kSetGroupId = 02000;

// The size is taken once: what the entries claim is checked against it, and a file that shrinks afterwards
// ends in a short read.
bool OpenArchive(AppData& app) {
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

// Any file that is no archive of the current format ends up here, so a header that never closes is the usual
// case and a format error like any other.
bool ReadEntries(AppData& app, int* error, std::string* text) {
  HeaderParser parser;
  HeaderParser::State state = HeaderParser::State::kReading;
  if (!OpenArchive(app) || !FeedArchive(app, parser, state)) {
    return SetErrorMessage(error, text, OLD_SYSTEM, app.archiveName, errno);
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

// Directories take no space here. False (message 4) when a file system cannot be examined.
bool AddLocation(LocationInfo& location, const FileInfo& info, int* error, std::string* text) {
  if (info.IsDirectory()) return true;
  const int exitCode = RunStatus::Current().exitCode;
  try {
    location.space.AddInfo(info.target, static_cast<double>(info.size), true);
  } catch (const CExcept&) {
    // The exception has written its number; here the failure is this reader's own message.
    RunStatus::Current().exitCode = exitCode;
    return SetErrorMessage(error, text, OLD_SYSTEM, info.target, errno);
  }
  return true;
}

// "drwxr-xr-x": set-id bits show as 's' in place of their 'x'.
std::string PermissionString(const FileInfo& info) {
  std::string text = "----------";
  constexpr std::string_view kLetters = "rwxrwxrwx";
  if (info.IsDirectory()) text[0] = 'd';
  for (std::size_t i = 0; i < kLetters.size(); ++i) {
    if ((info.mode & (0400U >> i)) != 0) text[i + 1] = kLetters[i];
  }
  if ((info.mode & kSetUserId) != 0) text[3] = 's';
  if ((info.mode & kSetGroupId) != 0) text[6] = 's';
  return text;
}

// In local time and without the year, as the older tool printed it: scripts read these lines.
// Empty for a time that has no calendar date here: the line still tells the rest.
std::string ShortDate(std::int64_t mtime) {
  const auto seconds = static_cast<std::time_t>(mtime);
  std::tm parts{};
  if (localtime_r(&seconds, &parts) == nullptr) return {};
  std::array<char, 64> text{};
  return std::string(text.data(), std::strftime(text.data(), text.size(), "%b %d %H:%M", &parts));
}

std::string ListingLine(const FileInfo& info) {
  std::array<char, 32> size{};
  std::snprintf(size.data(), size.size(), "%9llu", static_cast<unsigned long long>(info.size));
  return PermissionString(info) + "  " + size.data() + "  " + ShortDate(info.mtime) + "   " +
         ShowText(info.target);
}

}  // namespace

std::unique_ptr<AppData> InitAppData() {
  return std::make_unique<AppData>();
}

void FreeAppData(std::unique_ptr<AppData>& app) {
  app.reset();
}

void TellCallback(const AppData& app, OrvEvent event, const std::string& name) {
  if (app.callback != nullptr) app.callback(event, name.c_str(), app.userData);
}

LocationInfo::LocationInfo(const std::string& targetDir)
    : space(probe, targetDir.empty() ? std::string(".") : targetDir) {}

std::unique_ptr<LocationInfo> GetNewLocationInfo(const std::string& targetDir) {
  return std::make_unique<LocationInfo>(targetDir);
}

void FreeLocationInfo(std::unique_ptr<LocationInfo>& location) {
  location.reset();
}

bool CheckLocationInfo(const LocationInfo& location) {
  return location.space.CmpSpcReqAvail();
}

void PrintFreeSpaceReq(const LocationInfo& location) {
  if (CLogMan* log = RunStatus::Current().logManager) log->PrintInfo(location.space);
}

int ReadHeader(AppData& app, LocationInfo* location, int* error, std::string* text) {
  if (!ReadEntries(app, error, text)) return 0;
  TellCallback(app, OrvEvent::kHeaderRead, app.archiveName);
  if (location == nullptr && app.command != 't') return 1;
  const bool complete = ForEachSelected(app, [&](const FileInfo& info) {
    if (location != nullptr && !AddLocation(*location, info, error, text)) return false;
    if (app.command != 't') return true;
    PrintLine(ListingLine(info));
    TellCallback(app, OrvEvent::kEntryDone, info.target);
    return true;
  });
  return complete ? 1 : 0;
}

// One record serves the whole walk, so that a long header costs no memory per entry; whoever wants to come
// back to an entry keeps its `line`.
bool ForEachSelected(const AppData& app, const std::function<bool(const FileInfo&)>& handle) {
  const NameSelection selection(app.names);
  for (EntryWalk walk(app.entries); walk.Next();) {
    FileInfo& info = walk.Info();
    info.target = TransformPath(app.paths, info.name);
    if (DoesFilenameMatch(selection, info) && !handle(info)) return false;
  }
  return true;
}

FileInfo EntryAt(const AppData& app, std::size_t line) {
  FileInfo info = app.entries.At(line);
  info.target = TransformPath(app.paths, info.name);
  return info;
}

}  // namespace tolven

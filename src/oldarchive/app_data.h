#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fileio/file_stream.h"
#include "fileio/utils.h"
#include "oldarchive/old_header.h"
#include "oldarchive/old_paths.h"
#include "oldarchive/old_reader.h"
#include "report/space_info.h"

namespace tolven {

// The way of a run through this folder: the entry point (old_reader) makes an AppData, GetOptions
// (old_options) fills its first half from the arguments, ReadHeader its second half from the archive, and
// ExtractArchiveFiles (old_extract) takes the entries from there to the disk. The messages of all of them are
// SetErrorMessage's (old_messages): a function that fails has set one already, and its callers only pass the
// failure on.

// Whether every tenth byte of each stream is stored inverted. The lines do not say; the first entry with data
// tells it for the whole archive.
enum class Scramble { kUndecided, kOff, kOn };

// Everything one run over one archive needs: what GetOptions takes from the arguments, and what ReadHeader
// finds.
struct AppData {
  char command = 0;  // 'c', 'x', 't', 'd'; 0: none yet
  std::string archiveName = "DEFAULT.ORV";
  std::string includeFile;         // -A
  std::string targetDir;           // the R option; empty: the current directory
  std::vector<std::string> names;  // selected entries, with wildcards; empty: all
  bool verbose = false;
  bool spaceCheck = false;        // report the space needed instead of extracting
  bool compareChecksums = false;  // on extraction; a test always compares
  bool changeDirModes = true;     // of directories that were there before
  PathSettings paths;
  OrvCallback callback = nullptr;
  void* userData = nullptr;  // the caller's

  CFileStream archive;  // stays open: later steps must not depend on the current directory
  std::uint64_t archiveSize = 0;
  EntryLines entries;
  Scramble scramble = Scramble::kUndecided;
};

std::unique_ptr<AppData> InitAppData();
// Closes the archive and forgets its entries.
void FreeAppData(std::unique_ptr<AppData>& app);

// Tells the callback, if there is one.
void TellCallback(const AppData& app, OrvEvent event, const std::string& name);

// The space that an extraction would need, summed per target file system.
struct LocationInfo {
  explicit LocationInfo(const std::string& targetDir);

  CDiskProbe probe;
  CSpaceInfo space;
};

// A fresh record for an extraction below `targetDir` (empty: the current directory).
std::unique_ptr<LocationInfo> GetNewLocationInfo(const std::string& targetDir);
void FreeLocationInfo(std::unique_ptr<LocationInfo>& location);
// Asks the disks: true iff everything fits. Nothing is accounted afterwards.
bool CheckLocationInfo(const LocationInfo& location);
// Prints the report.
void PrintFreeSpaceReq(const LocationInfo& location);

// Opens the archive of `app` and reads its text header into app.entries. With command 't' every selected
// entry is listed, after the whole header has proved to be one. `location` (may be null) accounts the
// selected entries. 1 on success; 0 with message 4, 12 or the one about time stamps: of a file that is no
// archive nothing must reach the screen.
int ReadHeader(AppData& app, LocationInfo* location, int* error, std::string* text);

// Hands the selected entries to `handle` in their order; false as soon as it answers false.
[[nodiscard]] bool ForEachSelected(const AppData& app, const std::function<bool(const FileInfo&)>& handle);
// The entry whose line is kept at `line`, as ForEachSelected handed it out, but without the position of its
// data.
[[nodiscard]] FileInfo EntryAt(const AppData& app, std::size_t line);

}  // namespace tolven

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fileio/file_stream.h"
#include "oldarchive/old_header.h"

namespace tolven {

// Called after each entry that was listed, tested or extracted, with its name. Must not throw.
using OrvCallback = void (*)(const char* name, void* userData);

// How stored names become names on disk.
struct PathSettings {
  bool flat = false;       // only the last component
  bool lowerCase = false;  // ASCII letters
  bool validate = true;    // keep every name below the extraction directory
};

// Whether every tenth byte of each stream is stored inverted. The lines do not say; the first entry with data
// tells it for the whole archive.
enum class Scramble { kUndecided, kOff, kOn };

// Everything one run over one archive needs. The flat entry points fill it from their arguments, the commands
// of the program from the command line.
struct AppData {
  char command = 0;  // 'c', 'x', 't', 'd'; 0: none yet
  std::string archiveName = "DEFAULT.ORV";
  std::string includeFile;         // -A
  std::string targetDir;           // the R option; empty: the current directory
  std::vector<std::string> names;  // selected entries, with wildcards; empty: all
  bool verbose = false;
  bool ignoreCase = false;        // of the archive's name
  bool spaceCheck = false;        // report the space needed instead of extracting
  bool compareChecksums = false;  // on extraction; a test always compares
  bool changeDirModes = true;     // of directories that were there before
  PathSettings paths;
  OrvCallback callback = nullptr;
  void* userData = nullptr;  // the caller's

  // What ReadHeader finds.
  CFileStream archive;
  std::uint64_t archiveSize = 0;
  EntryLines entries;
  Scramble scramble = Scramble::kUndecided;

  std::uint64_t processed = 0;  // entries that succeeded
};

std::unique_ptr<AppData> InitAppData();
// Closes the archive and forgets every record.
void FreeAppData(std::unique_ptr<AppData>& app);

// Hands the selected entries to `handle` in their order; false as soon as it answers false.
bool ForEachSelected(const AppData& app, const std::function<bool(const FileInfo&)>& handle);

// Counts an entry as done and tells the callback.
void ReportEntry(AppData& app, const FileInfo& info);

}  // namespace tolven

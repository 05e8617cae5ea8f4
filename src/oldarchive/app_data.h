#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fileio/file_stream.h"

namespace tolven {

// Called after each entry that was listed, tested or extracted, with its name. Must not throw.
using OrvCallback = void (*)(const char* name, void* userData);

inline constexpr char kOldTypeFile = 'F';
inline constexpr char kOldTypeDirectory = 'D';
inline constexpr std::uint32_t kOldModeDirectory = 0x4000;  // added to the mode of a 'D' entry
inline constexpr std::uint32_t kOldModePermissions = 0777;  // all that is ever set on disk

// One entry line of the text header.
struct FileInfo {
  char type = kOldTypeFile;
  std::string name;    // as stored
  std::string target;  // after the path settings of the run
  std::uint32_t mode = 0;
  std::uint64_t compressedLength = 0;  // stream header included; below 8: the entry has no data
  std::uint64_t size = 0;              // uncompressed, as the line says; the stream has its own idea
  std::int64_t mtime = 0;              // seconds since 1970-01-01 UTC
  std::uint64_t checksum = 0;          // 0: none stored
  std::uint64_t position = 0;          // of the data in the archive file

  [[nodiscard]] bool IsDirectory() const { return type == kOldTypeDirectory; }
  [[nodiscard]] bool HasData() const;
};

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
  std::vector<FileInfo> files;
  Scramble scramble = Scramble::kUndecided;

  std::uint64_t processed = 0;  // entries that succeeded
};

std::unique_ptr<AppData> InitAppData();
// Closes the archive and forgets every record.
void FreeAppData(std::unique_ptr<AppData>& app);

// Counts an entry as done and tells the callback.
void ReportEntry(AppData& app, const FileInfo& info);

}  // namespace tolven

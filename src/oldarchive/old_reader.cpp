#include "oldarchive/old_reader.h"

#include <cerrno>
#include <limits>
#include <vector>

#include "fileio/working_directory.h"
#include "oldarchive/app_data.h"
#include "oldarchive/old_extract.h"
#include "oldarchive/old_options.h"
#include "oldarchive/old_paths.h"

namespace tolven {
namespace {

// Runs `body`, which answers whether it succeeded. Below this line only containers throw, for want of memory:
// that is a message as well.
template <typename Body>
int WithoutExceptions(int* error, std::string* text, Body body) {
  try {
    return body() ? 1 : 0;
  } catch (...) {
    // Copying the message may need memory too; the code alone must always get out.
    if (error != nullptr) *error = OLD_MEMORY;
    try {
      SetErrorMessage(error, text, OLD_MEMORY, std::string());
    } catch (...) {
      if (text != nullptr) text->clear();
    }
    return 0;
  }
}

bool ReportSpace(AppData& app, int* error, std::string* text) {
  std::unique_ptr<LocationInfo> location = GetNewLocationInfo(app.targetDir);
  if (ReadHeader(app, location.get(), error, text) == 0) return false;
  CheckLocationInfo(*location);  // what does not fit is no failure: the report says it
  PrintFreeSpaceReq(*location);
  FreeLocationInfo(location);
  return true;
}

// The header is read before the directory is entered: the archive's name is relative to where the run
// started, and that a file is no archive is the more important message.
bool ExtractBelowTarget(AppData& app, int* error, std::string* text) {
  if (ReadHeader(app, nullptr, error, text) == 0) return false;
  const CWorkingDirectory startDirectory;
  if (app.command == 'x' && !app.targetDir.empty() && !CWorkingDirectory::Enter(app.targetDir)) {
    return SetErrorMessage(error, text, OLD_TARGET_DIR, app.targetDir, errno);
  }
  return ExtractArchiveFiles(app, error, text) != 0;
}

bool RunCommand(AppData& app, int* error, std::string* text) {
  if (app.command == 'c') return SetErrorMessage(error, text, OLD_COMPRESS, app.archiveName);
  if (!DoAOption(app, error, text)) return false;
  if (app.spaceCheck) return ReportSpace(app, error, text);
  if (app.command == 't') return ReadHeader(app, nullptr, error, text) != 0;
  return ExtractBelowTarget(app, error, text);
}

}  // namespace

int iaxxorvl_ORV(int argc, const char* const* argv, int* error, std::string* text) {
  return iaxxorvl_ORV_Callback(argc, argv, nullptr, nullptr, error, text);
}

int iaxxorvl_ORV_Callback(int argc, const char* const* argv, OrvCallback callback, void* userData, int* error,
                          std::string* text) {
  return WithoutExceptions(error, text, [&] {
    std::vector<std::string> archives;
    if (!ListArchives(argc, argv, archives, error, text)) return false;
    if (archives.empty()) {
      return iaxxorvl_ORV_Callback2(argc, argv, callback, userData, nullptr, error, text) != 0;
    }
    for (const std::string& archive : archives) {
      if (iaxxorvl_ORV_Callback2(argc, argv, callback, userData, archive.c_str(), error, text) == 0)
        return false;
    }
    return true;
  });
}

int iaxxorvl_ORV_Callback2(int argc, const char* const* argv, OrvCallback callback, void* userData,
                           const char* archiveName, int* error, std::string* text) {
  return WithoutExceptions(error, text, [&] {
    std::unique_ptr<AppData> app = InitAppData();
    if (!GetOptions(argc, argv, *app, error, text)) return false;
    if (archiveName != nullptr) app->archiveName = NormalizePath(archiveName);
    app->callback = callback;
    app->userData = userData;
    const bool done = RunCommand(*app, error, text);
    FreeAppData(app);
    return done;
  });
}

int iaxxorvl_ORV_Extract(int argc, const char* const* argv, int* error, std::string* text) {
  return iaxxorvl_ExtractArchive(argc, argv, nullptr, nullptr, error, text);
}

int iaxxorvl_ExtractArchive(int argc, const char* const* argv, OrvCallback callback, void* userData,
                            int* error, std::string* text) {
  return WithoutExceptions(error, text, [&] {
    AppData settings;
    if (!GetOptions(argc, argv, settings, error, text)) return false;
    if (settings.command != 'x') return SetErrorMessage(error, text, OLD_NO_COMMAND, std::string());
    return iaxxorvl_ORV_Callback(argc, argv, callback, userData, error, text) != 0;
  });
}

int iaxxorvl_UncomprArchiveBytes(const char* archiveName, std::uint64_t* size, int* error,
                                 std::string* text) {
  return WithoutExceptions(error, text, [&] {
    if (archiveName == nullptr || size == nullptr) {
      return SetErrorMessage(error, text, OLD_NULL_PARAMETER, std::string());
    }
    AppData app;
    app.command = 'd';
    app.archiveName = NormalizePath(archiveName);
    if (ReadHeader(app, nullptr, error, text) == 0) return false;
    std::uint64_t sum = 0;
    for (EntryWalk walk(app.entries); walk.Next();) {
      const FileInfo& info = walk.Info();
      if (info.size > std::numeric_limits<std::uint64_t>::max() - sum) {
        return SetErrorMessage(error, text, OLD_HEADER_FORMAT, app.archiveName);
      }
      sum += info.size;
    }
    *size = sum;
    return true;
  });
}

}  // namespace tolven

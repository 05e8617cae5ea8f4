#pragma once

#include <memory>
#include <string>

#include "fileio/disk_probe.h"
#include "oldarchive/app_data.h"
#include "report/space_info.h"

namespace tolven {

// The space that an extraction would need, summed per target file system.
struct LocationInfo {
  explicit LocationInfo(const std::string& targetDir);

  CDiskProbe probe;
  CSpaceInfo space;
};

// A fresh record for an extraction below `targetDir` (empty: the current directory).
std::unique_ptr<LocationInfo> GetNewLocationInfo(const std::string& targetDir);
void FreeLocationInfo(std::unique_ptr<LocationInfo>& location);

// Accounts one entry. Directories take no space here. False (message 4) when a file system cannot be
// examined.
[[nodiscard]] bool AddLocation(LocationInfo& location, const FileInfo& info, int* error, std::string* text);
// True iff everything fits. Evaluates the table: call it once, and nothing is added afterwards.
[[nodiscard]] bool CheckLocationInfo(const LocationInfo& location);
// Prints the report.
void PrintFreeSpaceReq(const LocationInfo& location);

}  // namespace tolven

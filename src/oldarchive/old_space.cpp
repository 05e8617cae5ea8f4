#include "oldarchive/old_space.h"

#include "oldarchive/old_messages.h"
#include "report/except.h"
#include "report/log_man.h"
#include "report/run_status.h"

namespace tolven {

LocationInfo::LocationInfo(const std::string& targetDir)
    : space(probe, targetDir.empty() ? std::string(".") : targetDir) {}

std::unique_ptr<LocationInfo> GetNewLocationInfo(const std::string& targetDir) {
  return std::make_unique<LocationInfo>(targetDir);
}

void FreeLocationInfo(std::unique_ptr<LocationInfo>& location) {
  location.reset();
}

bool AddLocation(LocationInfo& location, const FileInfo& info, int* error, std::string* text) {
  if (info.IsDirectory()) return true;
  const int exitCode = RunStatus::Current().exitCode;
  try {
    location.space.AddInfo(info.target, static_cast<double>(info.size), true);
  } catch (const CExcept&) {
    // The exception has written its number; here the failure is this reader's own message.
    RunStatus::Current().exitCode = exitCode;
    return SetErrorMessage(error, text, OLD_SYSTEM, info.target);
  }
  return true;
}

bool CheckLocationInfo(const LocationInfo& location) {
  return location.space.CmpSpcReqAvail();
}

void PrintFreeSpaceReq(const LocationInfo& location) {
  if (CLogMan* log = RunStatus::Current().logManager) log->PrintInfo(location.space);
}

}  // namespace tolven

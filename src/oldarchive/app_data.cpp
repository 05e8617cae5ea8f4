#include "oldarchive/app_data.h"

#include "cslib/cslib.h"

namespace tolven {

bool FileInfo::HasData() const {
  return !IsDirectory() && compressedLength >= CS_HEAD_SIZE;
}

std::unique_ptr<AppData> InitAppData() {
  return std::make_unique<AppData>();
}

void FreeAppData(std::unique_ptr<AppData>& app) {
  app.reset();
}

void ReportEntry(AppData& app, const FileInfo& info) {
  ++app.processed;
  if (app.callback != nullptr) app.callback(info.target.c_str(), app.userData);
}

}  // namespace tolven

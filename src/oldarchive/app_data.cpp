#include "oldarchive/app_data.h"

#include "oldarchive/old_paths.h"

namespace tolven {

std::unique_ptr<AppData> InitAppData() {
  return std::make_unique<AppData>();
}

void FreeAppData(std::unique_ptr<AppData>& app) {
  app.reset();
}

bool ForEachSelected(const AppData& app, const std::function<bool(const FileInfo&)>& handle) {
  const NameSelection selection(app.names);
  for (EntryWalk walk(app.entries); walk.Next();) {
    FileInfo& info = walk.Info();
    info.target = TransformPath(app.paths, info.name);
    if (DoesFilenameMatch(selection, info) && !handle(info)) return false;
  }
  return true;
}

void ReportEntry(AppData& app, const FileInfo& info) {
  ++app.processed;
  if (app.callback != nullptr) app.callback(info.target.c_str(), app.userData);
}

}  // namespace tolven

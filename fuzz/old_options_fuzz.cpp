// The older tool's arguments (the first line, words separated by tabs) and its include file (the rest).
#include "fuzz/support.h"
#include "oldarchive/old_options.h"
#include "oldarchive/old_paths.h"

void tolven::fuzz::Run(Input input) {
  const Arguments arguments(input.Line());
  const MemoryFile include(input.Rest());
  AppData app;
  int error = 0;
  std::string text;
  const bool good = GetOptions(arguments.Count(), arguments.Vector(), app, &error, &text);
  Require(good ? error == 0 && text.empty() : error != 0 && !text.empty());
  if (!good) return;
  Require(app.targetDir.empty() || app.command == 'x');
  Require((app.archiveName + app.includeFile).find(',') == std::string::npos);

  app.includeFile = include.Name();
  if (!DoAOption(app, &error, &text)) {
    Require(error == 9);  // a line that is none
    return;
  }
  for (const std::string& name : app.names) {
    if (NormalizePath(name) != name) continue;  // behind "--" it stands as it is
    FileInfo info;
    info.name = name;
    info.target = TransformPath(app.paths, name);
    Require(DoesFilenameMatch(NameSelection({name}), info));
    std::string path;
    const bool made = CreateFilename(app.paths, info, path);
    Require(!made || !app.paths.validate || StaysBelow(path));  // -xnopvalid takes names as they are
  }
}

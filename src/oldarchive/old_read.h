#pragma once

#include <string>

#include "oldarchive/app_data.h"
#include "oldarchive/old_space.h"

namespace tolven {

// Opens the archive of `app`, reads its text header into app.files and applies the path settings. With
// command 't' every selected entry is listed, after the whole header has proved to be one. `location` (may be
// null) accounts the selected entries. 1 on success; 0 with message 4, 5, 12 or the one about time stamps.
// The archive stays open in `app`, so that later steps do not depend on the current directory.
int ReadHeader(AppData& app, LocationInfo* location, int* error, std::string* text);

}  // namespace tolven

#pragma once

#include <string>

#include "oldarchive/app_data.h"

namespace tolven {

// "drwxr-xr-x": 'd' or '-', then the nine rights; set-id bits show as 's' in place of their 'x'.
std::string OldPermissionString(const FileInfo& info);

// The line of a listing, without its newline: rights, size, local date, name.
std::string OldListingLine(const FileInfo& info);

}  // namespace tolven

#pragma once

namespace tolven {

// Finds and opens a library by the rules of DkvSupInitEx, all symbols bound now and none of them visible to
// anybody else. Null when there is none or it cannot be loaded. The caller closes it with dlclose.
void* OpenDkvLibrary(const char* libraryName);

}  // namespace tolven

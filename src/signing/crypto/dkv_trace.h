#pragma once

#include <cstdio>

namespace tolven {

// The trace file is the caller's, who takes it away with null before closing it.
void VantaCryptoLibSetTraceFile(std::FILE* file);
// 0 nothing, 1 errors, 2 and above more. Passed on to the loaded library.
void VantaCryptoLibSetTraceLevel(int level);

// Writes a formatted line to the trace file when its level is on.
void DkvTrace(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Registered with the library: its lines join the program's.
extern "C" void VantaCryptoLib_Trace_Callback(int level, const char* line);

}  // namespace tolven

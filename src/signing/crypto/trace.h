#pragma once

#include <cstdio>

namespace tolven {

// The developer trace: off unless QELMANIFEST_TRACELEVEL is a number above 0. Then lines are appended to
// "dev_qelmanifest.trc" in the directory where the program was started; never through a link, and never into
// anything but a regular file.
void OpenManifestTrace();
void CloseManifestTrace();

// 0 when the trace is off; null when the file could not be opened.
int ManifestTraceLevel();
std::FILE* ManifestTraceFile();

// Nothing happens while the trace is off.
void ManifestTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The part of the trace that speaks of the loaded library. Its file is the caller's, who takes it away with
// null before closing it: the library may still say something while it is unloaded.
void VantaCryptoLibSetTraceFile(std::FILE* file);
// 0 nothing, 1 errors, 2 and above more. Passed on to the loaded library.
void VantaCryptoLibSetTraceLevel(int level);

// Writes a formatted line to that file when its level is on.
void DkvTrace(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Registered with the library: its lines join the program's.
extern "C" void VantaCryptoLib_Trace_Callback(int level, const char* line);

}  // namespace tolven

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

}  // namespace tolven

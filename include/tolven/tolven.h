/* TOLVEN as a library: extract an archive in-process and read what would have been printed.
 *
 * Not reentrant and not thread-safe: one call at a time in a process. The working directory is changed during a
 * call and restored on every path.
 */
#ifndef TOLVEN_TOLVEN_H
#define TOLVEN_TOLVEN_H

#include <stdint.h>

#if defined(__GNUC__)
#define TOLVEN_API __attribute__((visibility("default")))
#else
#define TOLVEN_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Extracts `archive` below the existing directory `targetDirectory`.
 *
 * archive          the text that the program takes behind -f: one name, a list, or a pattern; null: "DEFAULT.VRA"
 * targetDirectory  null or empty: the current directory
 *
 * Returns the exit code of the program: 0 on success, else the number of the last error (docs: the manual's
 * exit codes). Both texts are copied; every call starts with fresh options. No exception leaves the function.
 */
TOLVEN_API int32_t extractTOLVENArchive(const char* archive, const char* targetDirectory);

/* The messages of the last call of extractTOLVENArchive, one line each, every line ending in a newline.
 *
 * Null before the first call, or when memory ran out. The text belongs to the library and stays valid until the
 * process ends: do not free it.
 */
TOLVEN_API const char* getTOLVENOutput(void);

#ifdef __cplusplus
}
#endif

#endif

/* TOLVEN as a library: extract an archive in-process and read what would have been printed.
 *
 * Any thread may call; calls of several threads wait for each other. The working directory, which all threads
 * share, is changed during a call and restored on every path. The shared library stays loaded once it is:
 * dlclose does not unmap it.
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
 * archive: the text that the program takes behind -f, which is one name, a list, or a pattern. Null means
 * "DEFAULT.VRA". A text without any name is an error, 29.
 *
 * targetDirectory: null or empty means the current directory.
 *
 * Returns the exit code of the program: 0 on success, else the number of the last error (docs: the manual's
 * exit codes). Neither text is needed once it returns; every call starts with fresh options. No exception
 * leaves the function.
 */
TOLVEN_API int32_t extractTOLVENArchive(const char* archive, const char* targetDirectory);

/* The messages of the call of extractTOLVENArchive that ended last, one line each, every line ending in a
 * newline.
 *
 * Null before the first call has ended, or when memory ran out. The text belongs to the library and stays
 * valid until the process ends, in exit handlers too: do not free it.
 */
TOLVEN_API const char* getTOLVENOutput(void);

#ifdef __cplusplus
}
#endif

#endif

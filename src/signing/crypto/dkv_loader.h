#pragma once

#include <string>

#include "signing/crypto/dkv_table.h"

namespace tolven {

// Results of DkvSupInitEx.
inline constexpr int kDkvReady = 0;
inline constexpr int kDkvAlreadyLoaded = 1;
inline constexpr int kDkvFunctionsMissing = 5;
inline constexpr int kDkvNotLoaded = 10;

// Told about each thing that failed: the result it leads to and the name of the library or function.
using DkvErrorCallback = void (*)(int result, const char* name);
// Gets every text about the load, good or bad, line ends included. The text lasts for the call.
using DkvMessageCallback = void (*)(const char* text);

// Loads a library into the table and initialises it.
//
// A name with a "/" is a path. Any other name is looked for beside the executable (or the shared object this
// code is part of), then in the private library directory, then where the system looks. The first file that
// is there counts, even when it cannot be loaded.
//
// Both callbacks may be null. level admits rows, see DkvLevelAdmits. SECUDIR is set before
// (Set_SECUDIR_Path). Returns 0 when everything is there, 5 when rows are missing (what is there is usable),
// 10 when the library is missing or refuses to start (the table stays empty and may be tried again with
// another name), 1 at once when the table is loaded already.
[[nodiscard]] int DkvSupInitEx(const char* libraryName, DkvTable* table, DkvErrorCallback errorCallback,
                               DkvMessageCallback messageCallback, unsigned level);

// Ends what DkvSupInitEx began: empties the table and closes the library. Nothing it handed out may be used
// afterwards. Does nothing with null or a table that is not loaded.
void DkvSupEnd(DkvTable* table);

// The process's table for a library name, not loaded at first. It lasts as long as the process, so that every
// context that names the same library shares one load.
DkvTable* DkvSupProcessTable(const char* libraryName);
// DkvSupEnd for all of them.
void DkvSupEndAll();

// Asks for the FIPS kernel at the next load (property FIPS_140_2_CRYPTO_KERNEL_ACTIVE). Off by default.
void DkvSupConfigureFips(bool active);
// What the library loaded last said when the property was read back; false when it has no such property.
bool DkvSupFipsActive();

// True iff the loaded library says that it is the maker's own.
bool DkvSupToolkitIsQELCrypto(const DkvTable* table);
// Version and patch level of the loaded library. False, and both 0, when it does not tell.
bool DkvSupToolkitVersion(const DkvTable* table, int* version, int* patchLevel);
// The library's version as one line; empty when it does not tell.
std::string DkvSupToolkitVersionString(const DkvTable* table);
// With the library's name in front when it is the maker's own ("QELCRYPTOLIB 8.0.35, ..."), else as above.
std::string DkvSupGetVantaCryptoLibVersionString(const DkvTable* table);

// The library's name and description of a return code; null without a library, or when it has none for the
// code. With several libraries loaded the one loaded last answers. The texts last until DkvSupEnd.
const char* DkvErrorName(int code);
const char* DkvErrorDescription(int code);

// Finds and opens a library by the rules of DkvSupInitEx, all symbols bound now and none of them visible to
// anybody else. Null when there is none or it cannot be loaded. The caller closes it with dlclose.
void* OpenDkvLibrary(const char* libraryName);

}  // namespace tolven

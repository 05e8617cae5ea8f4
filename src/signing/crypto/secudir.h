#pragma once

#include <cstddef>
#include <string>

namespace tolven {

// Longest value of SECUDIR in bytes; a longer one is cut.
inline constexpr std::size_t kSecudirLimit = 4095;

// Gets the texts about SECUDIR; may be null.
using SecudirMessageCallback = void (*)(const char* text);

// Makes sure that SECUDIR, the directory of PSE files, is set before a library is initialised. A value that
// is there is used; otherwise it becomes ".tolven/sec" in the user's home directory (HOME, else the user data
// base, else "/etc/tolven/sec"). The directory need not exist. Changes the environment: not for several
// threads.
void Set_SECUDIR_Path(SecudirMessageCallback message);

// Where the run began, before it went elsewhere for its input; a relative SECUDIR is made absolute by it.
// Changes the environment: not for several threads.
void SetStartDirectory(const std::string& directory);

// The path as it was meant there; as it stands when it is absolute or no start directory is known.
std::string InStartDirectory(const std::string& path);

}  // namespace tolven

#pragma once

#include "cmdline/run_services.h"

namespace tolven {

// After a key turned out to need a password and none was given with -pwd: asks the person at the terminal
// when standard input is one, else reads the file that TOLVEN_PASSWORD_FILE names, and hands the password to
// the command line, which keeps it for the rest of the run. False when there is neither. A password that is
// empty, or a file that others may read, is CInvalSignatureExcept.
[[nodiscard]] bool ObtainPassword(IRunServices& run);

}  // namespace tolven

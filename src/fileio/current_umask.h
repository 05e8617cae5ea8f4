#pragma once

#include <cstdint>

namespace tolven {

// The process's umask, which can only be asked for by setting it: where /proc tells, it is left alone, since
// other threads of an embedding program may be making files.
std::uint32_t CurrentUmask();

}  // namespace tolven

#pragma once

#include <cstdint>

namespace tolven {

// The uncompressed length in a stream header, told apart from what is wrong with it: CS_OK,
// CS_E_FILENOTCOMPRESSED or CS_E_INVALID_LEN.
int ReadDeclaredLength(const std::uint8_t* header, std::int32_t* length);

}  // namespace tolven

#pragma once

#include <string>
#include <string_view>

namespace tolven {

// The first PIN in the address of a hardware key ("pkcs11:...;pin-value=PIN&..."), from `from` on; empty
// when there is none, and in any other text. Better too much than a PIN with a separator in it.
std::string_view FindPin(std::string_view key, std::size_t from = 0);

// A key as messages and traces name it: an asterisk for each character of a PIN.
std::string HidePins(std::string key);

}  // namespace tolven

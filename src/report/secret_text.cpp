#include "report/secret_text.h"

#include <algorithm>

namespace tolven {

std::string_view FindPin(std::string_view key, std::size_t from) {
  constexpr std::string_view kAttribute = "pin-value=";
  if (!key.starts_with("pkcs11:")) return {};
  for (std::size_t at = from; (at = key.find(kAttribute, at)) != std::string_view::npos;) {
    at += kAttribute.size();
    const std::string_view rest = key.substr(at);
    const std::string_view pin = rest.substr(0, rest.find('&'));
    if (!pin.empty()) return pin;
  }
  return {};
}

std::string HidePins(std::string key) {
  for (std::string_view pin = FindPin(key); !pin.empty();) {
    const auto at = static_cast<std::size_t>(pin.data() - key.data());
    std::fill_n(key.begin() + static_cast<std::ptrdiff_t>(at), pin.size(), '*');
    pin = FindPin(key, at + pin.size());
  }
  return key;
}

}  // namespace tolven

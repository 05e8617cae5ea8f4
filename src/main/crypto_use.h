#pragma once

namespace tolven {

// The cryptographic library and what it stands on belong to the process. While one of these lives they stay
// loaded; the last one unloads them. Any thread.
class CCryptoUse {
 public:
  CCryptoUse();
  ~CCryptoUse();
  CCryptoUse(const CCryptoUse&) = delete;
  CCryptoUse& operator=(const CCryptoUse&) = delete;
};

}  // namespace tolven

#pragma once

#include "report/user_info.h"

namespace tolven {

// The usage text: the user's manual of the options.
class CUsage : public CUserInfo {
 public:
  std::string GetInfoText() const override;
};

}  // namespace tolven

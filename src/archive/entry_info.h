#pragma once

#include <cstdint>
#include <string>

#include "archive/format.h"
#include "report/user_info.h"

namespace tolven {

class CDirEntry;

// The listing line of one entry.
class CEntryInfo : public CUserInfo {
 public:
  explicit CEntryInfo(const CDirEntry& entry);
  CEntryInfo(std::string name, const EntryHeader& header, bool isSigned);

  // Permissions, length in 12 columns, local date in 20, name.
  std::string GetInfoText() const override;

 private:
  std::string Permissions() const;
  std::string Date() const;

  std::string m_name;
  EntryHeader m_header;
  bool m_signed;
};

}  // namespace tolven

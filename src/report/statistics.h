#pragma once

#include <cstdint>

#include "report/user_info.h"

namespace tolven {

// What -n prints at the end of a run.
class CStatistics : public CUserInfo {
 public:
  void CountFile() { ++m_filesProcessed; }
  void SetElapsedSeconds(std::int64_t seconds) { m_elapsedSeconds = seconds; }
  std::uint64_t GetFilesProcessed() const { return m_filesProcessed; }
  std::string GetInfoText() const override;

 private:
  std::uint64_t m_filesProcessed = 0;
  std::int64_t m_elapsedSeconds = 0;
};

}  // namespace tolven

#pragma once

#include <cstdint>
#include <string>

namespace tolven {

// Anything the program can print: exceptions, the usage, statistics, the space report, listing lines.
class CUserInfo {
 public:
  // The text as a new string.
  virtual std::string GetInfoText() const = 0;
  virtual ~CUserInfo() = default;
};

// The usage text: the user's manual of the options.
class CUsage : public CUserInfo {
 public:
  std::string GetInfoText() const override;
};

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

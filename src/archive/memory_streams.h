#pragma once

#include <span>
#include <string>
#include <utility>

#include "fileio/file_stream.h"

namespace tolven {

// Stands in for a file when the data lives in memory: the signed manifest. Writes append, reads run on from a
// position of their own.
class CBufferedStream : public CFileStream {
 public:
  // Memory that a hostile archive may claim through this stream is bounded by `limit`: a write beyond it
  // fails.
  explicit CBufferedStream(std::size_t limit = kDefaultLimit) : m_limit(limit) {}

  // False, with 0 bytes, when nothing was written yet.
  [[nodiscard]] bool Read(unsigned char* buf, unsigned long n, unsigned long* done) override;
  [[nodiscard]] bool Write(const unsigned char* buf, unsigned long n, unsigned long* done) override;
  void Open(const std::string&, unsigned int, unsigned int) override {}
  [[nodiscard]] bool Open() const override { return true; }

  std::span<const unsigned char> Contents() const {
    return {reinterpret_cast<const unsigned char*>(m_data.data()), m_data.size()};
  }
  // What was written, which is gone from here: nobody needs it twice.
  std::string Take() {
    m_readPosition = 0;
    return std::exchange(m_data, {});
  }

 private:
  static constexpr std::size_t kDefaultLimit = std::size_t{512} << 20;
  std::size_t m_limit;
  std::string m_data;
  std::size_t m_readPosition = 0;
};

// A stream for entries that need one but have no file behind it: everything succeeds, nothing is touched.
class CNullStream : public CFileStream {
 public:
  [[nodiscard]] bool Read(unsigned char* buf, unsigned long n, unsigned long* done) override;
  [[nodiscard]] bool Write(const unsigned char* buf, unsigned long n, unsigned long* done) override;
  void Open(const std::string&, unsigned int, unsigned int) override {}
  [[nodiscard]] bool Open() const override { return true; }
};

}  // namespace tolven

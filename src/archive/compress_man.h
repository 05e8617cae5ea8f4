#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "archive/format.h"
#include "cslib/crc32.h"

namespace tolven {

// The working buffers of a thread that reads archives: allocated once, reused for every block and entry. What
// is written, or decompressed ahead, has its buffers in the pipeline.
class CCompressMan {
 public:
  static constexpr std::uint32_t kBlockSize = kBlockInput;        // also the limit of a compressed payload
  static constexpr std::uint32_t kInputBufferSize = kMaxPayload;  // also the payload limit on read
  // The CRC of an entry: this table, register from 0, no inversion at either end.
  static constexpr const std::array<std::uint32_t, 256>& crc_32_tab = kCrc32Table;

  CCompressMan() : m_input(kInputBufferSize), m_output(kBlockSize) {}
  CCompressMan(const CCompressMan&) = delete;
  CCompressMan& operator=(const CCompressMan&) = delete;

  // A block payload.
  std::span<std::uint8_t> Input() { return m_input; }
  // A piece of the uncompressed data.
  std::span<std::uint8_t> Output() { return m_output; }

 private:
  std::vector<std::uint8_t> m_input;
  std::vector<std::uint8_t> m_output;
};

}  // namespace tolven

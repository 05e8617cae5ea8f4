#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "archive/block_pipeline.h"

namespace tolven {

// Decompresses blocks of an archive before its reader comes to them. It looks at the bytes of the file alone
// and decides nothing: what it cannot make sense of it leaves, and the reader, who passes over every header
// and block himself, takes a block from here or decompresses it like any other. So what an archive is found
// to be does not depend on it.
class CBlocksAhead {
 public:
  // What a block holds when it is a stream of its own.
  struct Data {
    std::span<const std::uint8_t> bytes;
    std::uint32_t crc;          // of the bytes, register from 0
    std::uint32_t payloadSize;  // of the block in the archive
  };

  // `descriptor`: of a regular file of `fileSize` bytes, open as long as the object lives. `threads`: see
  // ThreadCount.
  CBlocksAhead(int descriptor, std::int64_t fileSize, unsigned threads);

  // Whether the entries behind the current one are wanted as well.
  void CrossEntries(bool cross) { m_crosses = cross; }
  // The block whose header stands at `position`. False when it is not to be had here. The data is good until
  // the next call.
  [[nodiscard]] bool Take(std::int64_t position, Data& data);
  // Counts what the reader decompresses himself: threads are made when it is worth it.
  void NoteWork(std::size_t bytes) noexcept { m_pipeline.NoteWork(bytes); }

 private:
  // Goes over one header or block. False when there is no going on.
  bool Step();
  bool PassHeader();
  bool SendBlock(std::span<const std::uint8_t> header);
  // Bytes of the file; fewer than `count` only at its end, or when it cannot be read.
  std::span<const std::uint8_t> Peek(std::int64_t position, std::size_t count);

  const int m_descriptor;
  const std::int64_t m_fileSize;
  bool m_crosses = false;
  CBlockPipeline m_pipeline;
  bool m_handedOut = false;  // the front block is with the reader
  // The blocks from m_from on that were sent; m_position is behind the last one.
  bool m_walks = false;
  std::int64_t m_from = 0;
  std::int64_t m_position = 0;
  std::vector<std::uint8_t> m_window;
  std::int64_t m_windowAt = 0;
  std::size_t m_windowEnd = 0;
};

}  // namespace tolven

#pragma once

#include <cstdint>
#include <string>

#include "archive/compress_man.h"
#include "archive/compress_strategy.h"
#include "fileio/file_stream.h"

namespace tolven {

// Writes an entry's data as independent 64 KiB streams, raw where the engine's result does not fit.
class CNormalCompress : public ICompressStrategy {
 public:
  // `buffers` must outlive the strategy.
  explicit CNormalCompress(CCompressMan& buffers) : m_buffers(buffers) {}

  bool execute(CArchive* archive) override;
  void SetDirectoryEntry(CDirEntry* entry) override { m_pEntry = entry; }

 private:
  // Writes the chunk in the input buffer as one block and reads the next one, whose length replaces `length`.
  // True when the block was the last.
  bool compress(CArchive& archive, std::uint32_t& crc, std::uint32_t& length);
  std::uint32_t ReadChunk();
  void WriteBlock(CArchive& archive, BlockType type, std::uint32_t length);

  CCompressMan& m_buffers;
  CDirEntry* m_pEntry = nullptr;
};

}  // namespace tolven

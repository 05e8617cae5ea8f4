#pragma once

#include <cstdint>
#include <span>

#include "archive/compress_strategy.h"

namespace tolven {

// Writes an entry's data as independent 64 KiB streams, raw where the engine's result does not fit.
class CNormalCompress : public ICompressStrategy {
 public:
  bool execute(CArchive* archive) override;
  void SetDirectoryEntry(CDirEntry* entry) override { m_pEntry = entry; }

 private:
  std::uint32_t ReadChunk(std::span<std::uint8_t> room);

  CDirEntry* m_pEntry = nullptr;
};

}  // namespace tolven

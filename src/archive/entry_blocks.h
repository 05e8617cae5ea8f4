#pragma once

#include <cstdint>

#include "archive/format.h"

namespace tolven {

class CBlocksAhead;

// The blocks of one entry, in order, for whoever decompresses them: those that an archive stands at, or some
// that an index knows the places of.
class IEntryBlocks {
 public:
  virtual ~IEntryBlocks() = default;
  // Reads one block. 1: more follow; 0: it was the last, `checksum` is the stored CRC.
  virtual int GetEntryData(unsigned char* buffer, unsigned long bufferSize, unsigned long& bytesRead,
                           std::uint32_t& checksum, bool& compressed) = 0;
  // Blocks decompressed ahead; without them the next two are never asked for.
  virtual CBlocksAhead* Ahead() { return nullptr; }
  virtual std::int64_t Position() { return 0; }
  virtual int PassEntryData(std::uint32_t, std::uint32_t&) { return 0; }
};

// Where a block lies in its archive.
struct BlockPlace {
  std::int64_t payload = 0;  // offset
  std::uint32_t length = 0;  // of the payload
  BlockType type = BlockType::kNone;
  std::uint32_t dataLength = 0;  // uncompressed, as its stream header says; 0: it does not begin a stream
};

}  // namespace tolven

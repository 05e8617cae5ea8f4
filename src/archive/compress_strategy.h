#pragma once

namespace tolven {

class CArchive;
class CDirEntry;

// Turns the data of one entry into blocks.
class ICompressStrategy {
 public:
  virtual ~ICompressStrategy() = default;
  // Writes all blocks and the CRC of the current entry. True, or an exception.
  virtual bool execute(CArchive* archive) = 0;
  // Names the entry whose data stream is to be written; not owned.
  virtual void SetDirectoryEntry(CDirEntry* entry) = 0;
};

}  // namespace tolven

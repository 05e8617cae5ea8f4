#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "archive/archive.h"
#include "archive/entry_blocks.h"
#include "archive/entry_data.h"
#include "library/source.h"
#include "report/except.h"

namespace tolven {

// Where every entry of an archive lies, and every block of it: made by one walk, held in three flat tables,
// so that a million entries are tens of megabytes and no objects.
//
// A block is a stream of its own, in every archive that this program writes; then any offset costs one block.
// What else a reader has to take (a stream that runs on over blocks, as in version 2.00) is read from the
// start of the entry by the same reader, which is kept for whoever reads on from there.
class CEntryIndex {
 public:
  struct Row {
    std::uint64_t name;  // in the names; a zero byte behind it
    std::uint64_t size;  // of the data
    std::int64_t mtime;
    std::uint64_t firstBlock;  // the next row's is behind the last
    std::uint16_t nameLength;
    std::uint16_t mode;
    std::uint8_t type;
    bool isEmpty;   // by its header
    bool isDirect;  // blocks of their own, all but the last of 64 KiB
  };

  // Walks `archive` from its first entry.
  CEntryIndex(CArchive& archive, std::shared_ptr<CSource> source);
  ~CEntryIndex();

  std::size_t Count() const { return m_rows.size() - 1; }
  const Row& At(std::size_t number) const { return m_rows[number]; }
  // As NamesOf made it.
  std::string_view Name(std::size_t number) const;
  // The last entry of that name; a link is found by its own. The table is made at the first question.
  std::optional<std::size_t> Find(std::string_view name);
  // How many files of its name are in front of an entry.
  std::size_t FilesBefore(std::size_t number);

  // Any number of threads. Fewer than asked for only at the end.
  std::size_t Read(std::size_t number, std::span<std::uint8_t> to, std::uint64_t offset);
  // All of the data, piece by piece; CChecksumExcept at its end.
  template <typename Take>
  void ReadAll(std::size_t number, const Take& take);

 private:
  struct Block {
    std::uint64_t payloadAndType;  // offset << 2 | which of the four
    std::uint32_t length;
    std::uint32_t dataLength;
  };
  // Some blocks of an entry as the data reader wants them.
  class CRange;
  // What one thread needs for a block: reader's buffers, and the block that it had last.
  struct Worker {
    CCompressMan buffers;
    std::size_t block = static_cast<std::size_t>(-1);
    std::vector<std::uint8_t> data;
  };
  // Of the entry that was last read from its start.
  struct Sequence;

  void Add(const CDirEntry& entry, CArchive& archive);
  // Numbers sorted by name, then by number.
  const std::vector<std::uint32_t>& ByName();
  bool TakesBlocks(CArchive& archive, Row& row);
  std::string PathText(std::size_t number) const;
  std::unique_ptr<Worker> Borrow(std::size_t block);
  void GiveBack(std::unique_ptr<Worker> worker);
  void Decode(std::size_t number, std::size_t block, Worker& worker);
  bool IsDirect(std::size_t number);
  std::size_t ReadDirect(std::size_t number, std::span<std::uint8_t> to, std::uint64_t offset);
  std::size_t ReadInSequence(std::size_t number, std::span<std::uint8_t> to, std::uint64_t offset);
  // A header that says there is no data, or that there is some, in front of blocks that say otherwise.
  void RefuseMismatch(std::size_t number) const;

  const std::string m_archiveName;
  std::shared_ptr<CSource> m_source;
  std::string m_names;
  std::vector<Row> m_rows;  // one more than there are entries
  std::vector<Block> m_blocks;
  std::vector<std::uint32_t> m_byName;
  std::once_flag m_sorted;

  std::mutex m_lock;  // for what follows
  std::list<std::unique_ptr<Worker>> m_idle;
  std::unordered_set<std::size_t> m_notDirect;  // found out only when they were read
  std::mutex m_sequenceLock;
  std::unique_ptr<Sequence> m_sequence;
};

// --- The template.

class CEntryIndex::CRange final : public IEntryBlocks {
 public:
  CRange(CEntryIndex& index, std::size_t first, std::size_t end)
      : m_index(index), m_next(first), m_end(end) {}
  int GetEntryData(unsigned char* buffer, unsigned long bufferSize, unsigned long& bytesRead,
                   std::uint32_t& checksum, bool& compressed) override;

 private:
  CEntryIndex& m_index;
  std::size_t m_next;
  std::size_t m_end;
};

template <typename Take>
void CEntryIndex::ReadAll(std::size_t number, const Take& take) {
  RefuseMismatch(number);
  const Row& row = m_rows[number];
  if (row.isEmpty || row.type == TOLVEN_DIRECTORY || row.type == TOLVEN_LINK) return;
  const std::string name = PathText(number);
  CCompressMan buffers;
  CRange range(*this, row.firstBlock, m_rows[number + 1].firstBlock);
  CEntryDataReader reader(range, buffers, name);
  for (std::span<const std::uint8_t> piece; reader.Next(piece);) take(piece);
  if (reader.StoredCrc() != 0 && reader.StoredCrc() != reader.Crc()) throw CChecksumExcept(name);
}

}  // namespace tolven

#include "library/entry_index.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "archive/dir_entry.h"
#include "cslib/bytes.h"
#include "library/entry_view.h"
#include "report/except.h"

namespace tolven {

namespace {

constexpr unsigned kTypeBits = 2;
constexpr std::size_t kNoBlock = static_cast<std::size_t>(-1);
constexpr std::size_t kMaxIdle = 16;  // 320 KiB each

std::uint64_t Code(BlockType type) {
  return static_cast<std::uint64_t>(type) - static_cast<std::uint64_t>(BlockType::kData);
}

BlockType TypeOf(std::uint64_t payloadAndType) {
  return static_cast<BlockType>((payloadAndType & ((1U << kTypeBits) - 1)) +
                                static_cast<std::uint64_t>(BlockType::kData));
}

}  // namespace

struct CEntryIndex::Sequence {
  Sequence(CEntryIndex& index, std::size_t entry, std::string entryName)
      : number(entry),
        name(std::move(entryName)),
        range(index, index.m_rows[entry].firstBlock, index.m_rows[entry + 1].firstBlock),
        reader(range, buffers, name) {}

  std::size_t number;
  std::string name;
  CCompressMan buffers;
  CRange range;
  CEntryDataReader reader;
  std::span<const std::uint8_t> piece;
  std::uint64_t position = 0;  // of the piece
};

CEntryIndex::CEntryIndex(CArchive& archive, std::shared_ptr<CSource> source)
    : m_archiveName(archive.Name()), m_source(std::move(source)) {
  for (CDirEntry* entry = FirstEntry(archive); entry != nullptr; entry = archive.Next()) Add(*entry, archive);
  Row behind{};
  behind.name = m_names.size();
  behind.firstBlock = m_blocks.size();
  m_rows.push_back(behind);
  m_names.shrink_to_fit();
  m_rows.shrink_to_fit();
  m_blocks.shrink_to_fit();
}

CEntryIndex::~CEntryIndex() = default;

void CEntryIndex::Add(const CDirEntry& entry, CArchive& archive) {
  if (m_rows.size() >= std::numeric_limits<std::uint32_t>::max()) {
    throw LibraryError{TOLVEN_E_LENGTH, "more entries than an index can hold"};
  }
  Row row{};
  row.name = m_names.size();
  row.nameLength = static_cast<std::uint16_t>(entry.GetStoredName().size());
  m_names += NamesOf(entry);
  m_names += '\0';
  row.mode = static_cast<std::uint16_t>(entry.Header().mode & kSettableMode);
  row.type = static_cast<std::uint8_t>(TypeOfEntry(entry));
  row.size = SizeOfEntry(entry);
  row.mtime = entry.Header().mtime;
  row.isEmpty = entry.Header().IsEmpty();
  row.firstBlock = m_blocks.size();
  row.isDirect = TakesBlocks(archive, row) && archive.getVersionString() == kVersion201;
  m_rows.push_back(row);
}

// True when any offset can be found without decompressing what is in front of it.
bool CEntryIndex::TakesBlocks(CArchive& archive, Row& row) {
  bool direct = true;
  std::uint64_t total = 0;
  for (BlockPlace place; archive.PassBlock(place);) {
    if (m_blocks.size() > row.firstBlock && m_blocks.back().dataLength != kBlockInput) direct = false;
    direct = direct && place.dataLength > 0 && place.dataLength <= kBlockInput;
    total += place.dataLength;
    m_blocks.push_back({static_cast<std::uint64_t>(place.payload) << kTypeBits | Code(place.type),
                        place.length, place.dataLength});
  }
  // A block behind the one that ends the data would not be read.
  for (std::size_t i = row.firstBlock; direct && i < m_blocks.size(); ++i) {
    direct = IsLastBlock(TypeOf(m_blocks[i].payloadAndType)) == (i + 1 == m_blocks.size());
  }
  if (direct && !row.isEmpty) row.size = total;
  return direct;
}

std::string_view CEntryIndex::Name(std::size_t number) const {
  return std::string_view(m_names).substr(m_rows[number].name, m_rows[number].nameLength);
}

std::string CEntryIndex::PathText(std::size_t number) const {
  return std::string(PathOf(Name(number)));
}

const std::vector<std::uint32_t>& CEntryIndex::ByName() {
  std::call_once(m_sorted, [this] {
    m_byName.resize(Count());
    std::iota(m_byName.begin(), m_byName.end(), 0U);
    std::sort(m_byName.begin(), m_byName.end(), [&](std::uint32_t left, std::uint32_t right) {
      const int order = PathOf(Name(left)).compare(PathOf(Name(right)));
      return order != 0 ? order < 0 : left < right;
    });
  });
  return m_byName;
}

std::optional<std::size_t> CEntryIndex::Find(std::string_view name) {
  const std::vector<std::uint32_t>& numbers = ByName();
  const auto behind = std::upper_bound(
      numbers.begin(), numbers.end(), name,
      [&](std::string_view wanted, std::uint32_t number) { return wanted < PathOf(Name(number)); });
  if (behind == numbers.begin() || PathOf(Name(*(behind - 1))) != name) return std::nullopt;
  return *(behind - 1);
}

std::size_t CEntryIndex::FilesBefore(std::size_t number) {
  const std::vector<std::uint32_t>& numbers = ByName();
  const std::string_view name = PathOf(Name(number));
  auto place = std::lower_bound(
      numbers.begin(), numbers.end(), name,
      [&](std::uint32_t other, std::string_view wanted) { return PathOf(Name(other)) < wanted; });
  std::size_t count = 0;
  for (; place != numbers.end() && *place < number; ++place)
    count += m_rows[*place].type == TOLVEN_FILE ? 1 : 0;
  return count;
}

int CEntryIndex::CRange::GetEntryData(unsigned char* buffer, unsigned long bufferSize,
                                      unsigned long& bytesRead, std::uint32_t& checksum, bool& compressed) {
  // The header says that there is data.
  if (m_next == m_end) throw CReadExcept(m_index.m_archiveName);
  const Block& block = m_index.m_blocks[m_next++];
  if (block.length > bufferSize) throw CReadExcept(m_index.m_archiveName);
  const BlockType type = TypeOf(block.payloadAndType);
  const auto payload = static_cast<std::int64_t>(block.payloadAndType >> kTypeBits);
  m_index.m_source->ReadExactly(buffer, block.length, payload, m_index.m_archiveName);
  bytesRead = block.length;
  compressed = IsCompressedBlock(type);
  if (!IsLastBlock(type)) return 1;
  std::array<std::uint8_t, kCrcSize> crc{};
  m_index.m_source->ReadExactly(crc.data(), crc.size(), payload + block.length, m_index.m_archiveName);
  checksum = LoadLittle32(crc.data());
  return 0;
}

std::unique_ptr<CEntryIndex::Worker> CEntryIndex::Borrow(std::size_t block) {
  const std::lock_guard lock(m_lock);
  if (m_idle.empty()) return std::make_unique<Worker>();
  auto found =
      std::find_if(m_idle.begin(), m_idle.end(), [&](const auto& idle) { return idle->block == block; });
  if (found == m_idle.end()) {
    if (m_idle.size() < kMaxIdle) return std::make_unique<Worker>();
    found = m_idle.begin();  // idle for longest
  }
  std::unique_ptr<Worker> worker = std::move(*found);
  m_idle.erase(found);
  return worker;
}

void CEntryIndex::GiveBack(std::unique_ptr<Worker> worker) {
  const std::lock_guard lock(m_lock);
  if (m_idle.size() >= kMaxIdle) m_idle.pop_front();
  m_idle.push_back(std::move(worker));
}

void CEntryIndex::Decode(std::size_t number, std::size_t block, Worker& worker) {
  if (worker.block == block) return;
  worker.block = kNoBlock;
  worker.data.clear();
  const std::string name = PathText(number);
  // As if it were the only one: then the reader wants the stream to end with it.
  class COnly final : public IEntryBlocks {
   public:
    COnly(CEntryIndex& index, std::size_t only) : m_range(index, only, only + 1) {}
    int GetEntryData(unsigned char* buffer, unsigned long bufferSize, unsigned long& bytesRead,
                     std::uint32_t& checksum, bool& compressed) override {
      m_range.GetEntryData(buffer, bufferSize, bytesRead, checksum, compressed);
      return 0;
    }

   private:
    CRange m_range;
  } only(*this, block);
  CEntryDataReader reader(only, worker.buffers, name);
  for (std::span<const std::uint8_t> piece; reader.Next(piece);) {
    if (worker.data.size() + piece.size() > m_blocks[block].dataLength) throw CDecompExcept(name);
    worker.data.insert(worker.data.end(), piece.begin(), piece.end());
  }
  if (worker.data.size() != m_blocks[block].dataLength) throw CDecompExcept(name);
  worker.block = block;
}

bool CEntryIndex::IsDirect(std::size_t number) {
  if (!m_rows[number].isDirect) return false;
  const std::lock_guard lock(m_lock);
  return !m_notDirect.contains(number);
}

void CEntryIndex::RefuseMismatch(std::size_t number) const {
  const Row& row = m_rows[number];
  const bool isFile = row.type == TOLVEN_FILE || row.type == TOLVEN_SIGNATURE;
  const bool hasBlocks = m_rows[number + 1].firstBlock > row.firstBlock;
  if (isFile && row.isEmpty && hasBlocks) throw CDecompExcept(PathText(number));
  if (isFile && !row.isEmpty && !hasBlocks) throw CReadExcept(m_archiveName);
}

std::size_t CEntryIndex::Read(std::size_t number, std::span<std::uint8_t> to, std::uint64_t offset) {
  RefuseMismatch(number);
  const Row& row = m_rows[number];
  if (row.isEmpty || row.type == TOLVEN_DIRECTORY || row.type == TOLVEN_LINK || to.empty()) return 0;
  if (IsDirect(number)) {
    try {
      return ReadDirect(number, to, offset);
    } catch (const CDecompExcept&) {
      // Perhaps streams that run on behind headers that do not look like it: the whole entry tells.
      const std::lock_guard lock(m_lock);
      m_notDirect.insert(number);
    }
  }
  return ReadInSequence(number, to, offset);
}

std::size_t CEntryIndex::ReadDirect(std::size_t number, std::span<std::uint8_t> to, std::uint64_t offset) {
  const std::size_t end = m_rows[number + 1].firstBlock;
  std::size_t done = 0;
  while (done < to.size() && offset < m_rows[number].size) {
    const std::size_t block = m_rows[number].firstBlock + offset / kBlockInput;
    if (block >= end) break;
    std::unique_ptr<Worker> worker = Borrow(block);
    Decode(number, block, *worker);
    const std::size_t within = offset % kBlockInput;
    if (within >= worker->data.size()) break;
    const std::size_t count = std::min(to.size() - done, worker->data.size() - within);
    std::copy_n(worker->data.begin() + static_cast<std::ptrdiff_t>(within), count,
                to.begin() + static_cast<std::ptrdiff_t>(done));
    GiveBack(std::move(worker));
    done += count;
    offset += count;
  }
  return done;
}

std::size_t CEntryIndex::ReadInSequence(std::size_t number, std::span<std::uint8_t> to,
                                        std::uint64_t offset) {
  const std::lock_guard lock(m_sequenceLock);
  if (m_sequence == nullptr || m_sequence->number != number || m_sequence->position > offset) {
    m_sequence.reset();
    m_sequence = std::make_unique<Sequence>(*this, number, PathText(number));
  }
  // What fails is not gone on with.
  std::unique_ptr<Sequence> sequence = std::move(m_sequence);
  std::size_t done = 0;
  bool ended = false;
  while (done < to.size() && !ended) {
    const std::uint64_t behind = sequence->position + sequence->piece.size();
    if (offset >= behind) {
      std::span<const std::uint8_t> next;
      ended = !sequence->reader.Next(next);
      sequence->position = behind;
      sequence->piece = next;
      continue;
    }
    const auto within = static_cast<std::size_t>(offset - sequence->position);
    const std::size_t count = std::min(to.size() - done, sequence->piece.size() - within);
    std::copy_n(sequence->piece.begin() + static_cast<std::ptrdiff_t>(within), count,
                to.begin() + static_cast<std::ptrdiff_t>(done));
    done += count;
    offset += count;
  }
  if (!ended) m_sequence = std::move(sequence);
  return done;
}

}  // namespace tolven

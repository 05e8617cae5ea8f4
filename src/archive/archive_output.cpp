#include "archive/archive_output.h"

#include <algorithm>
#include <array>
#include <utility>

#include "archive/format.h"
#include "cslib/bytes.h"
#include "cslib/crc32.h"
#include "report/except.h"
#include "report/run_status.h"

namespace tolven {

namespace {

// One block is on its way while the next one is read.
constexpr CBlockPipeline::Shape kShape{.work = CBlockPipeline::Work::kCompress,
                                       .inputRoom = kBlockInput,
                                       .outputRoom = kBlockInput,
                                       .outputFront = kBlockHeaderSize,
                                       .waiting = 2};

// Headers and lines that wait for one slow block.
constexpr std::size_t kMaxItems = 4096;

}  // namespace

CArchiveOutput::CArchiveOutput(CFileStream& stream, std::string name, unsigned threads)
    : m_stream(stream), m_name(std::move(name)), m_pipeline(kShape, threads) {}

void CArchiveOutput::ToStream(std::span<const std::uint8_t> bytes) {
  unsigned long done = 0;
  if (!m_stream.Write(bytes.data(), bytes.size(), &done)) throw CWriteExcept(m_name, LastSystemError());
}

void CArchiveOutput::Write(std::span<const std::uint8_t> bytes) {
  if (m_items.empty()) {
    ToStream(bytes);
    return;
  }
  m_items.push_back({Kind::kBytes, false, std::string(bytes.begin(), bytes.end())});
  Retire();
}

void CArchiveOutput::Print(std::string line) {
  if (m_items.empty()) {
    PrintLine(line);
    return;
  }
  m_items.push_back({Kind::kLine, false, std::move(line)});
  Retire();
}

std::span<std::uint8_t> CArchiveOutput::Room() {
  while (m_pipeline.IsFull()) RetireFront();
  return {m_pipeline.Free().input.get(), kBlockInput};
}

void CArchiveOutput::PutBlock(std::uint32_t length, const std::string& name) {
  m_pipeline.Free().length = length;
  m_items.push_back({Kind::kBlock, false, name});
  m_open = true;
  m_pipeline.Submit();
  m_pipeline.NoteWork(length);
}

void CArchiveOutput::SealBlock(bool last) {
  m_items.back().last = last;
  m_open = false;
  Retire();
}

// A block that was not sealed stands at the end. Without threads every other one is worked on when its turn
// comes.
bool CArchiveOutput::IsReady() const {
  if (m_items.front().kind != Kind::kBlock) return true;
  if (m_open && m_items.size() == 1) return false;
  return !m_pipeline.HasThreads() || m_pipeline.IsFrontDone() || m_items.size() > kMaxItems;
}

void CArchiveOutput::Retire() {
  while (!m_items.empty() && IsReady()) RetireFront();
}

// What fails takes everything behind it along.
void CArchiveOutput::RetireFront() {
  const Item item = std::move(m_items.front());
  m_items.pop_front();
  try {
    switch (item.kind) {
      case Kind::kBytes:
        ToStream({reinterpret_cast<const std::uint8_t*>(item.text.data()), item.text.size()});
        return;
      case Kind::kLine:
        PrintLine(item.text);
        return;
      case Kind::kBlock:
        RetireBlock(item);
        return;
    }
  } catch (...) {
    m_open = false;
    m_items.clear();
    m_pipeline.Clear();
    throw;
  }
}

// Raw where the engine's result does not fit.
void CArchiveOutput::RetireBlock(const Item& item) {
  CBlockPipeline::Block& block = m_pipeline.Await();
  if (block.result < 0) {
    throw CDecompExcept(item.text + " (cslib error " + std::to_string(block.result) + ")");
  }
  const bool compressed = block.result == CS_END_OF_STREAM;
  const std::uint32_t stored = compressed ? block.written : block.length;
  std::uint8_t* payload = block.output.get() + kBlockHeaderSize;
  if (!compressed) std::copy_n(block.input.get(), block.length, payload);
  const BlockType type = compressed ? (item.last ? BlockType::kDataEnd : BlockType::kData)
                                    : (item.last ? BlockType::kUncompressedEnd : BlockType::kUncompressed);
  const std::span whole(block.output.get(), kBlockHeaderSize + stored);
  EncodeBlockHeader(type, stored, whole.first<kBlockHeaderSize>());
  ToStream(whole);
  m_crc = Crc32Combine(m_crc, block.crc, block.length);
  m_pipeline.Pop();
  if (!item.last) return;
  std::array<std::uint8_t, kCrcSize> crc{};
  StoreLittle32(crc.data(), std::exchange(m_crc, 0));
  ToStream(crc);
}

void CArchiveOutput::Drain() {
  if (m_open) {
    m_items.pop_back();
    m_open = false;
  }
  while (!m_items.empty()) RetireFront();
  m_pipeline.Clear();
}

}  // namespace tolven

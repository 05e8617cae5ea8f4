#include "archive/blocks_ahead.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "archive/format.h"
#include "cslib/bytes.h"

namespace tolven {

namespace {

// Twice the largest block, so that most are found whole in what was read.
constexpr std::size_t kWindowSize = 2 * kMaxPayload;

// The reader is not to wait for a walk over many entries without data.
constexpr int kStepsAtATime = 256;

constexpr CBlockPipeline::Shape kShape{.work = CBlockPipeline::Work::kDecompress,
                                       .inputRoom = kMaxPayload,
                                       .outputRoom = kBlockInput,
                                       .outputFront = 0,
                                       .waiting = 0};

}  // namespace

CBlocksAhead::CBlocksAhead(int descriptor, std::int64_t fileSize, unsigned threads)
    : m_descriptor(descriptor), m_fileSize(fileSize), m_pipeline(kShape, threads) {}

bool CBlocksAhead::Take(std::int64_t position, Data& data) {
  if (!m_pipeline.HasThreads()) return false;
  if (m_handedOut) m_pipeline.Pop();
  m_handedOut = false;
  const bool within = m_from <= position && (position < m_position || (position == m_position && m_walks));
  if (!within) {
    m_pipeline.Clear();
    m_from = m_position = position;
    m_walks = true;
  }
  // The reader skipped some.
  while (!m_pipeline.IsEmpty() && m_pipeline.Front().tag < position) {
    static_cast<void>(m_pipeline.Await());
    m_pipeline.Pop();
  }
  for (int steps = 0; steps < kStepsAtATime && !m_pipeline.IsFull() && m_walks; ++steps) m_walks = Step();
  if (m_pipeline.IsEmpty() || m_pipeline.Front().tag != position) return false;
  const CBlockPipeline::Block& block = m_pipeline.Await();
  m_handedOut = true;
  data = {std::span(block.output.get(), block.written), block.crc, block.length};
  return block.result == CS_END_OF_STREAM;
}

bool CBlocksAhead::Step() {
  const std::span<const std::uint8_t> header = Peek(m_position, kBlockHeaderSize);
  if (header.size() < kBlockHeaderSize) return false;
  const BlockType type = DecodeBlockType(static_cast<char>(header[0]), static_cast<char>(header[1]));
  if (type == BlockType::kNone) return m_crosses && PassHeader();
  const std::uint32_t length = LoadLittle32(header.data() + BlockField::length);
  if (length > kMaxPayload) return false;
  if (IsCompressedBlock(type) && length > 0) {
    const std::span<const std::uint8_t> payload = Peek(m_position + std::int64_t{kBlockHeaderSize}, length);
    if (payload.size() < length) return false;
    CBlockPipeline::Block& block = m_pipeline.Free();
    std::copy(payload.begin(), payload.end(), block.input.get());
    block.length = length;
    block.tag = m_position;
    m_pipeline.Submit();
  }
  const bool last = IsLastBlock(type);
  m_position += static_cast<std::int64_t>(kBlockHeaderSize + length + (last ? kCrcSize : 0));
  return m_position < m_fileSize && (m_crosses || !last);
}

bool CBlocksAhead::PassHeader() {
  const std::span<const std::uint8_t> bytes = Peek(m_position, kEntryHeaderSize);
  if (bytes.size() < kEntryHeaderSize) return false;
  const EntryHeader header = DecodeEntryHeader(bytes.first<kEntryHeaderSize>());
  m_position += static_cast<std::int64_t>(kEntryHeaderSize) + header.nameLength + header.accessInfoLength;
  return m_position < m_fileSize;
}

std::span<const std::uint8_t> CBlocksAhead::Peek(std::int64_t position, std::size_t count) {
  const auto inWindow = [&] {
    return m_windowAt <= position && static_cast<std::uint64_t>(position - m_windowAt) + count <= m_windowEnd;
  };
  if (!inWindow()) {
    m_window.resize(kWindowSize);
    m_windowAt = position;
    m_windowEnd = 0;
    while (m_windowEnd < count) {
      const ssize_t got = pread(m_descriptor, m_window.data() + m_windowEnd, kWindowSize - m_windowEnd,
                                position + static_cast<std::int64_t>(m_windowEnd));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) break;
      m_windowEnd += static_cast<std::size_t>(got);
    }
    if (!inWindow()) count = m_windowEnd;
  }
  return std::span(m_window).subspan(static_cast<std::size_t>(position - m_windowAt), count);
}

}  // namespace tolven

#include "archive/normal_compress.h"

#include <algorithm>
#include <array>

#include "archive/archive.h"
#include "archive/bytes.h"
#include "archive/dir_entry.h"
#include "cslib/crc32.h"
#include "cslib/cslib.h"
#include "report/except.h"

namespace tolven {

namespace {

// A fresh stream for every block, LZH at level 2.
constexpr int kBlockOptions = CS_INIT | CS_ALGORITHM_LZH | 2 << CS_LEVEL_SHIFT;
static_assert(kBlockOptions == 35);

}  // namespace

bool CNormalCompress::execute(CArchive* archive) {
  std::uint32_t crc = 0;
  std::uint32_t length = ReadChunk();
  while (!compress(*archive, crc, length)) {
  }
  std::array<unsigned char, kCrcSize> bytes{};
  StoreLittle(bytes.data(), crc);
  unsigned long done = 0;
  if (!archive->Stream().Write(bytes.data(), bytes.size(), &done))
    throw CWriteExcept(archive->Name(), LastSystemError());
  return true;
}

bool CNormalCompress::compress(CArchive& archive, std::uint32_t& crc, std::uint32_t& length) {
  const std::span<std::uint8_t> input = m_buffers.Input();
  const std::span<std::uint8_t> payload = m_buffers.Output().subspan(kBlockHeaderSize);
  crc = CRC32Buf(crc, input.data(), length);
  IEntryWitness* witness = m_pEntry->DoManifestAPI() ? archive.Witness() : nullptr;
  if (witness != nullptr) witness->Update(input.first(length));
  std::int32_t read = 0;
  std::int32_t written = 0;
  const auto total = static_cast<std::int32_t>(length);
  const int rc =
      CsComprEx(total, input.data(), total, payload.data(),
                static_cast<std::int32_t>(CCompressMan::kBlockSize), kBlockOptions, &read, &written);
  if (rc < 0) throw CDecompExcept(m_pEntry->GetPath() + " (cslib error " + std::to_string(rc) + ")");
  const bool compressed = rc == CS_END_OF_STREAM;
  const std::uint32_t stored = compressed ? static_cast<std::uint32_t>(written) : length;
  if (!compressed) std::copy_n(input.begin(), length, payload.begin());
  // The next chunk is read first, so that the block knows whether it is the last one.
  length = ReadChunk();
  const bool last = length == 0;
  if (compressed) {
    WriteBlock(archive, last ? BlockType::kDataEnd : BlockType::kData, stored);
  } else {
    WriteBlock(archive, last ? BlockType::kUncompressedEnd : BlockType::kUncompressed, stored);
  }
  return last;
}

std::uint32_t CNormalCompress::ReadChunk() {
  unsigned long done = 0;
  if (!m_pEntry->DataStream()->Read(m_buffers.Input().data(), CCompressMan::kBlockSize, &done)) {
    throw CReadExcept(m_pEntry->GetPath());
  }
  return static_cast<std::uint32_t>(done);
}

void CNormalCompress::WriteBlock(CArchive& archive, BlockType type, std::uint32_t length) {
  const std::span<std::uint8_t> block = m_buffers.Output().first(kBlockHeaderSize + length);
  EncodeBlockHeader(type, length, block.first<kBlockHeaderSize>());
  unsigned long done = 0;
  if (!archive.Stream().Write(block.data(), block.size(), &done))
    throw CWriteExcept(archive.Name(), LastSystemError());
}

}  // namespace tolven

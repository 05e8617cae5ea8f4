#pragma once

// The data of an entry: turned into blocks on its way into an archive, and put together again on its way out.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "archive/entry_blocks.h"
#include "archive/format.h"
#include "cslib/crc32.h"
#include "cslib/cslib.h"

namespace tolven {

class CArchive;
class CDirEntry;

// The working buffers of a thread that reads archives: allocated once, reused for every block and entry. What
// is written, or decompressed ahead, has its buffers in the pipeline.
class CCompressMan {
 public:
  static constexpr std::uint32_t kBlockSize = kBlockInput;        // also the limit of a compressed payload
  static constexpr std::uint32_t kInputBufferSize = kMaxPayload;  // also the payload limit on read
  // The CRC of an entry: this table, register from 0, no inversion at either end.
  static constexpr const std::array<std::uint32_t, 256>& crc_32_tab = kCrc32Table;

  CCompressMan() : m_input(kInputBufferSize), m_output(kBlockSize) {}
  ~CCompressMan() { static_cast<void>(CsRCloseHandle(m_engine)); }
  CCompressMan(const CCompressMan&) = delete;
  CCompressMan& operator=(const CCompressMan&) = delete;

  // The engine's handle of these buffers: taken when it is first asked for, so that whoever only walks has
  // none. Negative when there is none to be had.
  int Engine() {
    if (m_engine < 0) m_engine = CsSearchNewHandle();
    return m_engine;
  }
  // A block payload.
  std::span<std::uint8_t> Input() { return m_input; }
  // A piece of the uncompressed data.
  std::span<std::uint8_t> Output() { return m_output; }

 private:
  std::vector<std::uint8_t> m_input;
  std::vector<std::uint8_t> m_output;
  int m_engine = -1;
};

// Turns the data of one entry into blocks.
class ICompressStrategy {
 public:
  virtual ~ICompressStrategy() = default;
  // Writes all blocks and the CRC of the current entry. True, or an exception.
  virtual bool execute(CArchive* archive) = 0;
  // Names the entry whose data stream is to be written; not owned.
  virtual void SetDirectoryEntry(CDirEntry* entry) = 0;
};

// Writes an entry's data as independent 64 KiB streams, raw where the engine's result does not fit.
class CNormalCompress : public ICompressStrategy {
 public:
  bool execute(CArchive* archive) override;
  void SetDirectoryEntry(CDirEntry* entry) override { m_pEntry = entry; }

 private:
  std::uint32_t ReadChunk(std::span<std::uint8_t> room);

  CDirEntry* m_pEntry = nullptr;
};

// The uncompressed data of one entry, piece by piece. It ends at the entry's "ED" or
// "UE" block, never by a count taken from the header: a block starts a stream when none is open and continues
// it otherwise, so archives of both versions, and mixtures, read alike. Memory is the two buffers of
// `buffers`.
class CEntryDataReader {
 public:
  CEntryDataReader(IEntryBlocks& blocks, CCompressMan& buffers, const std::string& name)
      : m_blocks(blocks),
        m_buffers(buffers),
        m_input(buffers.Input()),
        m_output(buffers.Output()),
        m_name(name) {}

  // The next piece, valid until the next call; false at the end. CDecompExcept for data that is no stream of
  // the engine, a stream that the last block leaves unfinished, or a raw block inside a stream.
  bool Next(std::span<const std::uint8_t>& piece);
  // The stored CRC, once Next has returned false.
  std::uint32_t StoredCrc() const { return m_storedCrc; }
  // The CRC of all pieces so far.
  std::uint32_t Crc() const { return m_crc; }

 private:
  bool ReadBlock(std::span<const std::uint8_t>& piece);
  bool TakeAhead(std::span<const std::uint8_t>& piece);
  bool Decompress(std::span<const std::uint8_t>& piece);

  IEntryBlocks& m_blocks;
  CCompressMan& m_buffers;
  std::span<std::uint8_t> m_input;
  std::span<std::uint8_t> m_output;
  const std::string& m_name;
  std::uint32_t m_position = 0;  // in the payload
  std::uint32_t m_length = 0;    // of the payload
  bool m_pending = false;        // the engine has more to say about this payload
  bool m_streamOpen = false;
  bool m_last = false;
  std::uint32_t m_storedCrc = 0;
  std::uint32_t m_crc = 0;
};

}  // namespace tolven

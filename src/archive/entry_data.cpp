#include "archive/entry_data.h"

#include "archive/archive.h"
#include "archive/blocks_ahead.h"
#include "archive/dir_entry.h"
#include "cslib/crc32.h"
#include "cslib/cslib.h"
#include "report/except.h"

namespace tolven {

bool CNormalCompress::execute(CArchive* archive) {
  CArchiveOutput& output = archive->Output();
  std::span<std::uint8_t> room = output.Room();
  std::uint32_t length = ReadChunk(room);
  IEntryWitness* witness = m_pEntry->DoManifestAPI() ? archive->Witness() : nullptr;
  do {
    if (witness != nullptr) witness->Update(room.first(length));
    output.PutBlock(length, m_pEntry->GetPath());
    // The next chunk is read first, so that the block knows whether it is the last one.
    room = output.Room();
    length = ReadChunk(room);
    output.SealBlock(length == 0);
  } while (length > 0);
  return true;
}

std::uint32_t CNormalCompress::ReadChunk(std::span<std::uint8_t> room) {
  unsigned long done = 0;
  if (!m_pEntry->DataStream()->Read(room.data(), room.size(), &done)) throw CReadExcept(m_pEntry->GetPath());
  return static_cast<std::uint32_t>(done);
}

// --- Reading.

bool CEntryDataReader::Next(std::span<const std::uint8_t>& piece) {
  for (;;) {
    if (m_pending) {
      if (Decompress(piece)) break;
    } else if (m_last) {
      if (m_streamOpen) throw CDecompExcept(m_name);
      return false;
    } else if (!m_streamOpen && TakeAhead(piece)) {
      if (!piece.empty()) return true;
    } else if (ReadBlock(piece)) {
      break;
    }
  }
  m_crc = CRC32Buf(m_crc, piece.data(), piece.size());
  return true;
}

// Only a block that is one whole stream: whatever else there is is found out here.
bool CEntryDataReader::TakeAhead(std::span<const std::uint8_t>& piece) {
  CBlocksAhead* ahead = m_blocks.Ahead();
  CBlocksAhead::Data data;
  if (ahead == nullptr || !ahead->Take(m_blocks.Position(), data)) return false;
  m_last = m_blocks.PassEntryData(data.payloadSize, m_storedCrc) == 0;
  m_crc = Crc32Combine(m_crc, data.crc, data.bytes.size());
  piece = data.bytes;
  return true;
}

// True when the block was raw and is itself the piece.
bool CEntryDataReader::ReadBlock(std::span<const std::uint8_t>& piece) {
  unsigned long length = 0;
  bool compressed = false;
  m_last = m_blocks.GetEntryData(m_input.data(), m_input.size(), length, m_storedCrc, compressed) == 0;
  m_position = 0;
  m_length = static_cast<std::uint32_t>(length);
  if (compressed) {
    m_pending = m_length > 0;
    return false;
  }
  if (m_streamOpen) throw CDecompExcept(m_name);
  piece = m_input.first(m_length);
  return m_length > 0;
}

bool CEntryDataReader::Decompress(std::span<const std::uint8_t>& piece) {
  std::int32_t read = 0;
  std::int32_t written = 0;
  const int rc = CsRDecompress(m_buffers.Engine(), m_input.data() + m_position,
                               static_cast<std::int32_t>(m_length - m_position), m_output.data(),
                               static_cast<std::int32_t>(CCompressMan::kBlockSize),
                               m_streamOpen ? 0 : CS_INIT, &read, &written);
  if (rc < 0) throw CDecompExcept(m_name + " (cslib error " + std::to_string(rc) + ")");
  m_position += static_cast<std::uint32_t>(read);
  if (CBlocksAhead* ahead = m_blocks.Ahead(); ahead != nullptr) {
    ahead->NoteWork(static_cast<std::size_t>(written));
  }
  m_streamOpen = rc != CS_END_OF_STREAM;
  m_pending = rc == CS_END_OUTBUFFER;
  // Full output that holds nothing, from no input: the engine would say so for ever.
  if (m_pending && read == 0 && written == 0) throw CDecompExcept(m_name);
  piece = m_output.first(static_cast<std::size_t>(written));
  return written > 0;
}

}  // namespace tolven

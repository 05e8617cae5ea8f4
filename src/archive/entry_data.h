#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "archive/archive.h"
#include "archive/compress_man.h"

namespace tolven {

// The uncompressed data of the current entry of an archive, piece by piece. It ends at the entry's "ED" or
// "UE" block, never by a count taken from the header: a block starts a stream when none is open and continues
// it otherwise, so archives of both versions, and mixtures, read alike. Memory is the two buffers of
// `buffers`.
class CEntryDataReader {
 public:
  CEntryDataReader(CArchive& archive, CCompressMan& buffers, const std::string& name)
      : m_archive(archive), m_input(buffers.Input()), m_output(buffers.Output()), m_name(name) {}

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

  CArchive& m_archive;
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

#include "archive/normal_compress.h"

#include "archive/archive.h"
#include "archive/dir_entry.h"
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

}  // namespace tolven

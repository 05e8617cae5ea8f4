#include "archive/format.h"

namespace tolven {

namespace {

struct BlockTypeName {
  BlockType type;
  char letters[2];
};
constexpr BlockTypeName kBlockTypes[] = {
    {BlockType::kData, {'D', 'A'}},
    {BlockType::kDataEnd, {'E', 'D'}},
    {BlockType::kUncompressed, {'U', 'D'}},
    {BlockType::kUncompressedEnd, {'U', 'E'}},
};

// The engine has no halves of words to store.
void StoreLittle16(std::uint8_t* to, std::uint16_t value) {
  to[0] = static_cast<std::uint8_t>(value);
  to[1] = static_cast<std::uint8_t>(value >> 8);
}

std::uint16_t LoadLittle16(const std::uint8_t* from) {
  return static_cast<std::uint16_t>(from[0] | from[1] << 8);
}

}  // namespace

double EntryHeader::DataLength() const {
  return static_cast<double>(sizeHigh) * 4294967296.0 + static_cast<double>(static_cast<std::uint64_t>(size));
}

void EncodeEntryHeader(const EntryHeader& header, std::span<std::uint8_t, kEntryHeaderSize> bytes) {
  std::uint8_t* to = bytes.data();
  to[EntryField::type] = static_cast<std::uint8_t>(header.type[0]);
  to[EntryField::type + 1] = static_cast<std::uint8_t>(header.type[1]);
  StoreLittle32(to + EntryField::mode, header.mode);
  UllongToBytes(static_cast<std::uint64_t>(header.size), bytes.subspan<EntryField::size, 8>());
  StoreLittle32(to + EntryField::sizeHigh, header.sizeHigh);
  UllongToBytes(static_cast<std::uint64_t>(header.mtime), bytes.subspan<EntryField::mtime, 8>());
  StoreLittle32(to + EntryField::reserved, header.reserved);
  StoreLittle16(to + EntryField::accessInfoLength, header.accessInfoLength);
  StoreLittle16(to + EntryField::nameLength, static_cast<std::uint16_t>(header.nameLength + 1));
}

EntryHeader DecodeEntryHeader(std::span<const std::uint8_t, kEntryHeaderSize> bytes) {
  const std::uint8_t* from = bytes.data();
  EntryHeader header;
  header.type = {static_cast<char>(from[EntryField::type]), static_cast<char>(from[EntryField::type + 1])};
  header.mode = LoadLittle32(from + EntryField::mode);
  std::uint64_t value = 0;
  BytesToUllong(bytes.subspan<EntryField::size, 8>(), value);
  header.size = static_cast<std::int64_t>(value);
  header.sizeHigh = LoadLittle32(from + EntryField::sizeHigh);
  BytesToUllong(bytes.subspan<EntryField::mtime, 8>(), value);
  header.mtime = static_cast<std::int64_t>(value);
  header.reserved = LoadLittle32(from + EntryField::reserved);
  header.accessInfoLength = LoadLittle16(from + EntryField::accessInfoLength);
  header.nameLength = LoadLittle16(from + EntryField::nameLength);
  return header;
}

BlockType DecodeBlockType(char first, char second) {
  for (const BlockTypeName& row : kBlockTypes) {
    if (row.letters[0] == first && row.letters[1] == second) return row.type;
  }
  return BlockType::kNone;
}

void EncodeBlockHeader(BlockType type, std::uint32_t length,
                       std::span<std::uint8_t, kBlockHeaderSize> bytes) {
  for (const BlockTypeName& row : kBlockTypes) {
    if (row.type != type) continue;
    bytes[BlockField::type] = static_cast<std::uint8_t>(row.letters[0]);
    bytes[BlockField::type + 1] = static_cast<std::uint8_t>(row.letters[1]);
  }
  StoreLittle32(bytes.data() + BlockField::length, length);
}

}  // namespace tolven

#pragma once

// Archive files on disk: every signature, offset, size and limit. docs/format.md tells the same to people.
// The numbers are in archives that exist: do not change them.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "cslib/bytes.h"
#include "fileio/utils.h"

namespace tolven {

// --- Archive header, at offset 0. Entries follow it back to back; the archive ends where the file ends.
namespace ArchiveField {
inline constexpr std::size_t magic = 0, version = 4, end = 8;
}
inline constexpr std::size_t kArchiveHeaderSize = 8;
static_assert(ArchiveField::end == kArchiveHeaderSize);
inline constexpr std::string_view kMagic = "ORV ";
// Another platform's backup; recognised to be refused.
inline constexpr std::string_view kMagicBackup{"ORV\0", 4};
inline constexpr std::string_view kVersion200 = "2.00";
inline constexpr std::string_view kVersion201 = "2.01";  // what is written

// --- Entry header; name and access information follow it.
namespace EntryField {
inline constexpr std::size_t type = 0, mode = 2, size = 6, sizeHigh = 14, mtime = 18, reserved = 26,
                             accessInfoLength = 30, nameLength = 32, end = 34;
}
inline constexpr std::size_t kEntryHeaderSize = 34;
static_assert(EntryField::end == kEntryHeaderSize);

// Longest stored name, terminating zero included; also the limit of the nameLength field.
inline constexpr std::size_t kMaxNameLength = kNameBufferSize;

using EntryType = std::array<char, 2>;
inline constexpr EntryType kTypeRegular = {'R', 'G'};
inline constexpr EntryType kTypeDirectory = {'D', 'R'};
inline constexpr EntryType kTypeLink = {'L', 'K'};
inline constexpr EntryType kTypeShortcut = {'S', 'C'};  // another platform's link; only read
inline constexpr EntryType kTypeManifest = {'S', 'M'};  // only read; written as "RG" with kManifestMode
inline constexpr EntryType kTypeSv = {'S', 'V'};        // tolerated as first type, then refused

// File-type bits of EntryHeader::mode.
inline constexpr std::uint32_t kModeTypeMask = 0xF000;
inline constexpr std::uint32_t kModeTypeDirectory = 0x4000;
inline constexpr std::uint32_t kModeTypeRegular = 0x8000;
inline constexpr std::uint32_t kModeTypeLink = 0xA000;

inline constexpr std::string_view kManifestName = "SIGNATURE.SMF";
// Directory bit and 0600: together with the name this marks the signed manifest.
inline constexpr std::uint32_t kManifestMode = 0x4180;

struct EntryHeader {
  EntryType type{};
  std::uint32_t mode = 0;
  std::int64_t size = 0;       // uncompressed bytes, as the file system told before the data was read
  std::uint32_t sizeHigh = 0;  // readers add sizeHigh * 2^32
  std::int64_t mtime = 0;      // seconds since 1970-01-01 UTC
  std::uint32_t unserialised = 0;
  std::uint32_t reserved = 0;
  std::uint16_t accessInfoLength = 0;
  std::uint16_t nameLength = 0;  // characters, without the terminating zero that the file counts

  // No data length at all: neither blocks nor a CRC follow.
  [[nodiscard]] bool IsEmpty() const { return size == 0 && sizeHigh == 0; }
  // size + sizeHigh * 2^32. A double, since the sum need not fit 64 bits.
  [[nodiscard]] double DataLength() const;
};

// The file counts the terminating zero of the name, EntryHeader does not.
void EncodeEntryHeader(const EntryHeader& header, std::span<std::uint8_t, kEntryHeaderSize> bytes);
// `nameLength` is taken as it stands in the file, up to 65535: the caller checks it.
EntryHeader DecodeEntryHeader(std::span<const std::uint8_t, kEntryHeaderSize> bytes);

// --- Data blocks: header, payload, and behind the last one of an entry the CRC-32 (register from 0, not
// inverted) of its uncompressed data.
namespace BlockField {
inline constexpr std::size_t type = 0, length = 2, end = 6;
}
inline constexpr std::size_t kBlockHeaderSize = 6;
static_assert(BlockField::end == kBlockHeaderSize);
inline constexpr std::size_t kCrcSize = 4;

enum class BlockType {
  kNone,            // not a block: the next entry, or nonsense
  kData,            // "DA": compressed, more follow
  kDataEnd,         // "ED": compressed, last
  kUncompressed,    // "UD": raw, more follow
  kUncompressedEnd  // "UE": raw, last
};
BlockType DecodeBlockType(char first, char second);
constexpr bool IsLastBlock(BlockType type) {
  return type == BlockType::kDataEnd || type == BlockType::kUncompressedEnd;
}
constexpr bool IsCompressedBlock(BlockType type) {
  return type == BlockType::kData || type == BlockType::kDataEnd;
}
void EncodeBlockHeader(BlockType type, std::uint32_t length, std::span<std::uint8_t, kBlockHeaderSize> bytes);

// Input of one compressed stream: a block of its own in 2.01; in 2.00 one stream runs over many blocks.
inline constexpr std::uint32_t kBlockInput = 0x10000;
inline constexpr std::uint32_t kStreamInput200 = 0x40000000;
// Largest payload that a reader takes.
inline constexpr std::uint32_t kMaxPayload = 0x20000;

// The byte order of these fields, whatever the host's.
inline void UllongToBytes(std::uint64_t value, std::span<std::uint8_t, 8> bytes) {
  StoreLittle64(bytes.data(), value);
}
inline void BytesToUllong(std::span<const std::uint8_t, 8> bytes, std::uint64_t& value) {
  value = LoadLittle64(bytes.data());
}

}  // namespace tolven

// The 8 bytes in front of every compressed stream: length (4, little-endian), version and algorithm (1),
// magic (2), parameter of the algorithm (1).

#include "cslib/stream_header.h"

#include "cslib/cslib.h"

namespace tolven {
namespace {

constexpr std::uint8_t kMagic0 = 0x1F;
constexpr std::uint8_t kMagic1 = 0x9D;

namespace HeaderField {
constexpr int length = 0, versionAlgorithm = 4, magic = 5, parameter = 7, end = 8;
}
static_assert(HeaderField::end == CS_HEAD_SIZE);

bool HasMagic(const std::uint8_t* header) {
  return header[HeaderField::magic] == kMagic0 && header[HeaderField::magic + 1] == kMagic1;
}

std::int32_t Length(const std::uint8_t* header) {
  std::uint32_t length = 0;
  for (int i = 3; i >= 0; --i) length = length << 8 | header[HeaderField::length + i];
  return static_cast<std::int32_t>(length);
}

}  // namespace

int ReadDeclaredLength(const std::uint8_t* header, std::int32_t* length) {
  if (!HasMagic(header)) return CS_E_FILENOTCOMPRESSED;
  *length = Length(header);
  return *length < 0 ? CS_E_INVALID_LEN : CS_OK;
}

// A length above 2^31 - 1 comes out negative, and one of them as the very code for a bad magic.
std::int32_t CsRGetLen(const std::uint8_t* header) {
  return HasMagic(header) ? Length(header) : CS_E_FILENOTCOMPRESSED;
}

int CsRGetVersion(const std::uint8_t* header) {
  return header[HeaderField::versionAlgorithm] >> 4;
}

int CsRGetAlgorithm(const std::uint8_t* header) {
  return header[HeaderField::versionAlgorithm] & 15;
}

int CsRSetHead(std::uint8_t* header, std::int32_t length, std::uint8_t algorithm, std::uint8_t parameter) {
  if (length < 0) return CS_E_INVALID_LEN;
  for (int i = 0; i < 4; ++i) {
    header[HeaderField::length + i] =
        static_cast<std::uint8_t>(static_cast<std::uint32_t>(length) >> (8 * i));
  }
  header[HeaderField::versionAlgorithm] = algorithm;
  header[HeaderField::magic] = kMagic0;
  header[HeaderField::magic + 1] = kMagic1;
  header[HeaderField::parameter] = parameter;
  return CS_OK;
}

std::int32_t CsGetLen(const std::uint8_t* header) {
  return CsRGetLen(header);
}

int CsGetVersion(const std::uint8_t* header) {
  return CsRGetVersion(header);
}

int CsGetAlgorithm(const std::uint8_t* header) {
  return CsRGetAlgorithm(header);
}

int CsSetHead(std::uint8_t* header, std::int32_t length, int algorithm, int parameter) {
  return CsRSetHead(header, length, static_cast<std::uint8_t>(algorithm & 0xFF),
                    static_cast<std::uint8_t>(parameter & 0xFF));
}

}  // namespace tolven

#include "cslib/stream_header.h"

#include "cslib/bytes.h"
#include "cslib/lzc_format.h"

namespace tolven {
namespace {

constexpr std::uint8_t kMagic0 = 0x1F;
constexpr std::uint8_t kMagic1 = 0x9D;
constexpr int kVersion = 1;
constexpr int kVersionShift = 4;
constexpr int kAlgorithmMask = 15;

constexpr int kMinLevel = 1, kMaxLevel = 9, kDefaultLevel = 2;

namespace HeaderField {
constexpr int length = 0, versionAlgorithm = 4, magic = 5, parameter = 7, end = 8;
}
static_assert(HeaderField::end == CS_HEAD_SIZE);

bool HasMagic(const std::uint8_t* header) {
  return header[HeaderField::magic] == kMagic0 && header[HeaderField::magic + 1] == kMagic1;
}

// A length of 2 GiB and more comes out negative.
std::int32_t Length(const std::uint8_t* header) {
  return static_cast<std::int32_t>(LoadLittle32(header + HeaderField::length));
}

// Levels outside of the range ask for the default, so that options without any level bits do.
std::uint8_t LevelOf(int options) {
  const int level = options >> CS_LEVEL_SHIFT;
  return static_cast<std::uint8_t>(level < kMinLevel || level > kMaxLevel ? kDefaultLevel : level);
}

}  // namespace

// LZC has no levels: its streams are all made the same way, and readers learn the width from the header.
CsResult HeaderFromOptions(std::int32_t length, int options, StreamHeader& header) {
  header.length = length;
  header.algorithm = options & CS_ALGORITHM_MASK;
  header.framed = (options & CS_CHECKSUM) != 0;
  switch (header.algorithm) {
    case CS_ALGORITHM_LZC:
      header.parameter = lzc::kWriteMaxBits | lzc::kBlockMode;
      return CS_OK;
    case CS_ALGORITHM_LZH:
      header.parameter = LevelOf(options);
      return CS_OK;
    default:
      return CS_E_UNKNOWN_ALG;
  }
}

CsResult WriteStreamHeader(const StreamHeader& header, StreamHeaderBytes bytes) {
  const bool lzc = header.algorithm == CS_ALGORITHM_LZC;
  // An LZC stream of no bytes does not exist: it has no first code. An empty LZH stream has an empty block.
  if (lzc && header.length < 1) return CS_E_INVALID_LEN;
  const int code = (lzc ? CS_ALG_CODE_LZC : CS_ALG_CODE_LZH) | (header.framed ? CS_ALG_CODE_CHECKSUM : 0);
  return CsRSetHead(bytes.data(), header.length, static_cast<std::uint8_t>(kVersion << kVersionShift | code),
                    header.parameter);
}

// The version is not asked for: only one is known, and what a reader has to know is told by the algorithm.
CsResult ReadAlgorithm(ConstStreamHeaderBytes bytes, StreamHeader& header) {
  const int code = CsRGetAlgorithm(bytes.data());
  header.framed = (code & CS_ALG_CODE_CHECKSUM) != 0;
  switch (code & ~CS_ALG_CODE_CHECKSUM) {
    case CS_ALG_CODE_LZC:
      header.algorithm = CS_ALGORITHM_LZC;
      return CS_OK;
    case CS_ALG_CODE_LZH:
      header.algorithm = CS_ALGORITHM_LZH;
      return CS_OK;
    default:
      return CS_E_UNKNOWN_ALG;
  }
}

CsResult ReadStreamHeader(ConstStreamHeaderBytes bytes, StreamHeader& header) {
  // Not by CsRGetLen, whose one number cannot tell a bad magic from a length of 0xFFFFFFCE.
  if (!HasMagic(bytes.data())) return CS_E_FILENOTCOMPRESSED;
  header.length = Length(bytes.data());
  if (header.length < 0) return CS_E_INVALID_LEN;
  header.parameter = bytes[HeaderField::parameter];
  if (header.algorithm != CS_ALGORITHM_LZC) return CS_OK;
  // Below 9 bits there are no codes beside the literals; above 14 the tables would not hold them.
  const int maxBits = header.parameter & lzc::kMaxBitsMask;
  return maxBits < lzc::kInitBits || maxBits > lzc::kReadMaxBits ? CS_E_MAXBITS : CS_OK;
}

// --- The published routines on header bytes
//
// They are what programs outside of the engine know of the header, and keep to what they always did: no check
// but that of the magic, and that a length is not negative.

// One of the lengths that come out negative is the very code for a bad magic: whoever reads streams uses
// ReadStreamHeader.
std::int32_t CsRGetLen(const std::uint8_t* header) {
  return HasMagic(header) ? Length(header) : CS_E_FILENOTCOMPRESSED;
}

int CsRGetVersion(const std::uint8_t* header) {
  return header[HeaderField::versionAlgorithm] >> kVersionShift;
}

int CsRGetAlgorithm(const std::uint8_t* header) {
  return header[HeaderField::versionAlgorithm] & kAlgorithmMask;
}

CsResult CsRSetHead(std::uint8_t* header, std::int32_t length, std::uint8_t algorithm,
                    std::uint8_t parameter) {
  if (length < 0) return CS_E_INVALID_LEN;
  StoreLittle32(header + HeaderField::length, static_cast<std::uint32_t>(length));
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

CsResult CsSetHead(std::uint8_t* header, std::int32_t length, int algorithm, int parameter) {
  return CsRSetHead(header, length, static_cast<std::uint8_t>(algorithm & 0xFF),
                    static_cast<std::uint8_t>(parameter & 0xFF));
}

}  // namespace tolven

// The LZH decompressor: an explicit state machine that can stop at any bit of the input and any byte of the
// output. This file is its careful path; while both ends are far away, DecodeFast does the work.

#include "cslib/lzh_decompress.h"

#include <algorithm>
#include <new>

#include "cslib/cslib.h"
#include "cslib/lzh_decompress_fast.h"
#include "cslib/lzh_decompress_state.h"
#include "cslib/stream_header.h"

namespace tolven {
namespace lzh {
namespace {

// A step either moves the machine on or ends the call with a result code, all of which differ from this.
constexpr int kMoveOn = 100;

class Decoder {
 public:
  Decoder(LzhDecompressState& state, const Cursor& cursor) : s_(state), c_(cursor) {}

  // Runs until the call ends. The result code; the cursor then tells what was read and written.
  int Run();
  const Cursor& cursor() const { return c_; }
  void SaveBits();
  void SaveHistory();

 private:
  bool Have(unsigned count);
  std::uint32_t Take(unsigned count);

  int ReadBlockHeader();
  int ReadDynamicCounts();
  int ReadBitLengthLengths();
  int ReadCodeLengths();
  int RepeatLength(unsigned symbol, unsigned extra);
  int BuildTables();
  int Lookup(const DecodeTable& table, Entry* entry, unsigned* linkBits);
  int DecodeSymbols();
  int DecodeSymbol();
  int DecodeDistance();
  int CopyPending();
  int EndBlock();

  [[nodiscard]] std::uint32_t Total() const { return s_.total + static_cast<std::uint32_t>(c_.Produced()); }
  [[nodiscard]] std::uint32_t Undelivered() const { return s_.declared - Total(); }

  LzhDecompressState& s_;
  Cursor c_;
};

// True iff `count` bits (at most 56) are in the buffer. If not, all input of the call is.
inline bool Decoder::Have(unsigned count) {
  if (c_.bitCount >= count) return true;
  if (c_.InLeft() >= sizeof(std::uint64_t)) {
    c_.bits |= LoadLittleEndian64(c_.in) << c_.bitCount;
    c_.in += (63U - c_.bitCount) >> 3;
    c_.bitCount |= 56U;
    return true;
  }
  while (c_.bitCount < 56 && c_.in != c_.inEnd) {
    c_.bits |= std::uint64_t{*c_.in++} << c_.bitCount;
    c_.bitCount += 8;
  }
  return c_.bitCount >= count;
}

inline std::uint32_t Decoder::Take(unsigned count) {
  const auto value = static_cast<std::uint32_t>(c_.bits & ((std::uint64_t{1} << count) - 1));
  c_.bits >>= count;
  c_.bitCount -= count;
  return value;
}

int Decoder::ReadBlockHeader() {
  if (!Have(3)) return CS_END_INBUFFER;
  s_.lastBlock = Take(1) != 0;
  switch (Take(2)) {
    case kBlockFixed:
      s_.litLen = FixedLitLenTable();
      s_.dist = FixedDistTable();
      s_.phase = LzhPhase::kSymbols;
      return kMoveOn;
    case kBlockDynamic:
      s_.phase = LzhPhase::kDynamicCounts;
      return kMoveOn;
    default:  // stored blocks are not part of the format
      return CS_E_UNKNOWN_TYPE;
  }
}

int Decoder::ReadDynamicCounts() {
  if (!Have(5 + 5 + 4)) return CS_END_INBUFFER;
  s_.litLenCodes = Take(5) + 257;
  s_.distCodes = Take(5) + 1;
  s_.bitLengthCodes = Take(4) + 4;
  if (s_.litLenCodes > kLitLenCodes || s_.distCodes > kDistCodes) return CS_E_BAD_HEADER;
  s_.lengthsRead = 0;
  s_.bitLengthLengths.fill(0);
  s_.phase = LzhPhase::kBitLengthLengths;
  return kMoveOn;
}

int Decoder::ReadBitLengthLengths() {
  for (; s_.lengthsRead < s_.bitLengthCodes; ++s_.lengthsRead) {
    if (!Have(3)) return CS_END_INBUFFER;
    s_.bitLengthLengths[bl_order[s_.lengthsRead]] = static_cast<std::uint8_t>(Take(3));
  }
  const int rc = BuildDecodeTable(s_.bitLengthLengths, kBitLengthResults.data(), kBitLengthRootBits,
                                  s_.bitLengthPool, &s_.bitLengthRootBits);
  if (rc != CS_OK) return rc;
  s_.lengthsRead = 0;
  s_.phase = LzhPhase::kCodeLengths;
  return kMoveOn;
}

int Decoder::ReadCodeLengths() {
  const DecodeTable table{s_.bitLengthPool.data(), s_.bitLengthRootBits};
  const std::uint64_t mask = (std::uint64_t{1} << table.rootBits) - 1;
  while (s_.lengthsRead < s_.litLenCodes + s_.distCodes) {
    constexpr unsigned kMaxItemBits = kMaxBitLengthBits + 7;  // code 18 with its repeat count
    const bool enough = Have(kMaxItemBits);
    const Entry entry = table.entries[c_.bits & mask];
    if (!enough && DropBits(entry) > c_.bitCount) return CS_END_INBUFFER;
    if (Is(entry, kInvalid)) return CS_E_BAD_CODE;
    const std::uint32_t extra = Take(DropBits(entry)) >> CodeBits(entry);
    const std::uint32_t symbol = Value(entry);
    if (symbol < kRepeatPrevious) {
      s_.codeLengths[s_.lengthsRead++] = static_cast<std::uint8_t>(symbol);
    } else if (const int rc = RepeatLength(symbol, extra); rc != kMoveOn) {
      return rc;
    }
  }
  return BuildTables();
}

int Decoder::RepeatLength(unsigned symbol, unsigned extra) {
  std::uint8_t length = 0;
  unsigned count = extra + 3;
  if (symbol == kRepeatPrevious) {
    if (s_.lengthsRead == 0) return CS_E_BAD_CODE;  // there is nothing to repeat yet
    length = s_.codeLengths[s_.lengthsRead - 1];
  } else if (symbol == kRepeatZeroLong) {
    count = extra + 11;
  }
  if (count > s_.litLenCodes + s_.distCodes - s_.lengthsRead) return CS_E_BAD_CODE;
  std::fill_n(s_.codeLengths.begin() + s_.lengthsRead, count, length);
  s_.lengthsRead += count;
  return kMoveOn;
}

int Decoder::BuildTables() {
  const std::span<const std::uint8_t> lengths(s_.codeLengths.data(), s_.litLenCodes + s_.distCodes);
  int rc = BuildDecodeTable(lengths.first(s_.litLenCodes), kLitLenResults.data(), kLitLenRootBits,
                            s_.litLenPool, &s_.litLen.rootBits);
  if (rc != CS_OK) return rc;
  rc = BuildDecodeTable(lengths.subspan(s_.litLenCodes), kDistResults.data(), kDistRootBits, s_.distPool,
                        &s_.dist.rootBits);
  if (rc != CS_OK) return rc;
  s_.litLen.entries = s_.litLenPool.data();
  s_.dist.entries = s_.distPool.data();
  s_.phase = LzhPhase::kSymbols;
  return kMoveOn;
}

// Looks at the next code. What the bits at hand decide is decided with them alone: an entry counts once all
// of its bits, extra bits included, are there, whatever stands above them in the buffer.
int Decoder::Lookup(const DecodeTable& table, Entry* entry, unsigned* linkBits) {
  Have(2 * kMaxCodeBits);  // more than any item; less is enough when it decides
  Entry found = table.entries[c_.bits & ((std::uint64_t{1} << table.rootBits) - 1)];
  *linkBits = 0;
  if (Is(found, kLink)) {
    *linkBits = DropBits(found);
    const std::uint64_t index = (c_.bits >> *linkBits) & ((std::uint64_t{1} << CodeBits(found)) - 1);
    found = table.entries[Value(found) + index];
  }
  if (*linkBits + DropBits(found) > c_.bitCount) return CS_END_INBUFFER;
  if (Is(found, kInvalid)) return CS_E_BAD_CODE;
  *entry = found;
  return kMoveOn;
}

int Decoder::DecodeSymbols() {
  while (s_.phase == LzhPhase::kSymbols) {
    const std::size_t room = std::min<std::size_t>(c_.Room(), Undelivered());
    if (WorthDecodingFast(c_, room)) {
      const FastExit exit = s_.decodeFast(s_, c_, room);
      if (exit == FastExit::kBlockDone) return EndBlock();
      if (exit == FastExit::kDistance) {
        s_.phase = LzhPhase::kDistance;
        return kMoveOn;
      }
    }
    if (const int rc = DecodeSymbol(); rc != kMoveOn) return rc;
  }
  return kMoveOn;
}

int Decoder::DecodeSymbol() {
  Entry entry;
  unsigned linkBits;
  if (const int rc = Lookup(s_.litLen, &entry, &linkBits); rc != kMoveOn) return rc;
  if ((entry & kLiteral) != 0) {
    if (Undelivered() == 0) return CS_E_BAD_CODE;  // a file that goes on behind its declared length
    if (c_.Room() == 0) return CS_END_OUTBUFFER;   // the code stays in the buffer
    Take(linkBits + DropBits(entry));
    *c_.out++ = LiteralByte(entry);
    return kMoveOn;
  }
  Take(linkBits);
  if (Is(entry, kEndOfBlock)) {
    Take(DropBits(entry));
    return EndBlock();
  }
  s_.length = ValueWithExtra(entry, c_.bits);
  Take(DropBits(entry));
  if (s_.length > Undelivered()) return CS_E_BAD_CODE;
  s_.phase = LzhPhase::kDistance;
  return kMoveOn;
}

int Decoder::DecodeDistance() {
  Entry entry;
  unsigned linkBits;
  if (const int rc = Lookup(s_.dist, &entry, &linkBits); rc != kMoveOn) return rc;
  Take(linkBits);
  s_.distance = ValueWithExtra(entry, c_.bits);
  Take(DropBits(entry));
  if (s_.distance > Total()) return CS_E_BAD_CODE;  // before the start of the output
  s_.phase = LzhPhase::kCopy;
  return kMoveOn;
}

int Decoder::CopyPending() {
  const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(s_.length, c_.Room()));
  CopyMatch(s_, c_, count, s_.distance);
  s_.length -= count;
  if (s_.length != 0) return CS_END_OUTBUFFER;
  s_.phase = LzhPhase::kSymbols;
  return kMoveOn;
}

int Decoder::EndBlock() {
  if (!s_.lastBlock) {
    s_.phase = LzhPhase::kBlockHeader;
  } else {
    s_.phase = Undelivered() == 0 ? LzhPhase::kEnd : LzhPhase::kShortEnd;
  }
  return kMoveOn;
}

int Decoder::Run() {
  for (;;) {
    int rc = kMoveOn;
    switch (s_.phase) {
      case LzhPhase::kPreambleCount:
        if (!Have(2)) return CS_END_INBUFFER;
        s_.preambleBits = Take(2);
        s_.phase = LzhPhase::kPreambleBits;
        break;
      case LzhPhase::kPreambleBits:
        if (!Have(s_.preambleBits)) return CS_END_INBUFFER;
        Take(s_.preambleBits);
        s_.phase = LzhPhase::kBlockHeader;
        break;
      case LzhPhase::kBlockHeader:
        rc = ReadBlockHeader();
        break;
      case LzhPhase::kDynamicCounts:
        rc = ReadDynamicCounts();
        break;
      case LzhPhase::kBitLengthLengths:
        rc = ReadBitLengthLengths();
        break;
      case LzhPhase::kCodeLengths:
        rc = ReadCodeLengths();
        break;
      case LzhPhase::kSymbols:
        rc = DecodeSymbols();
        break;
      case LzhPhase::kDistance:
        rc = DecodeDistance();
        break;
      case LzhPhase::kCopy:
        rc = CopyPending();
        break;
      case LzhPhase::kEnd:
        return CS_END_OF_STREAM;
      case LzhPhase::kShortEnd:
        return CS_OK;
      case LzhPhase::kFailed:
        return s_.failure;
    }
    if (rc == kMoveOn) continue;
    if (rc < 0) {
      s_.phase = LzhPhase::kFailed;
      s_.failure = rc;
    }
    return rc;
  }
}

void Decoder::SaveBits() {
  s_.bits = c_.bits & ((std::uint64_t{1} << c_.bitCount) - 1);
  s_.bitCount = c_.bitCount;
}

// Keeps what later calls may copy from, and counts what this one delivered.
void Decoder::SaveHistory() {
  const std::size_t produced = c_.Produced();
  const std::size_t kept = std::min<std::size_t>(produced, kWindowSize);
  s_.total += static_cast<std::uint32_t>(produced);
  if (kept == 0 || s_.total == s_.declared) return;
  const std::size_t at = (s_.total - kept) % kWindowSize;
  const std::size_t first = std::min<std::size_t>(kept, kWindowSize - at);
  std::memcpy(s_.window.data() + at, c_.out - kept, first);
  if (kept != first) std::memcpy(s_.window.data(), c_.out - kept + first, kept - first);
}

// Reads the header of a new stream and forgets the old one. CS_OK or why it cannot be read.
int StartStream(LzhDecompressState& state, const std::uint8_t* in, std::int32_t inLen) {
  state.phase = LzhPhase::kFailed;
  state.failure = CS_E_IN_BUFFER_LEN;
  if (inLen < CS_HEAD_SIZE) return state.failure;
  std::int32_t length = 0;
  state.failure = ReadDeclaredLength(in, &length);
  if (state.failure != CS_OK) return state.failure;
  state.phase = LzhPhase::kPreambleCount;
  state.declared = static_cast<std::uint32_t>(length);
  state.total = 0;
  state.bits = 0;
  state.bitCount = 0;
  return CS_OK;
}

}  // namespace

void CopyMatch(const LzhDecompressState& state, Cursor& cursor, std::uint32_t length,
               std::uint32_t distance) {
  const std::size_t produced = cursor.Produced();
  if (distance > produced) {
    // The first part stands in the window, where it may wrap around.
    const std::size_t behind = distance - produced;
    const std::size_t count = std::min<std::size_t>(length, behind);
    const std::size_t at = (state.total - behind) % kWindowSize;
    const std::size_t first = std::min<std::size_t>(count, kWindowSize - at);
    cursor.out = std::copy_n(state.window.data() + at, first, cursor.out);
    cursor.out = std::copy_n(state.window.data(), count - first, cursor.out);
    length -= static_cast<std::uint32_t>(count);
  }
  if (length == 0) return;
  // A match may overlap itself, so byte by byte.
  const std::uint8_t* from = cursor.out - distance;
  for (; length != 0; --length) *cursor.out++ = *from++;
}

}  // namespace lzh

void LzhDecompressStateDeleter::operator()(LzhDecompressState* state) const {
  delete state;
}

LzhDecompressStatePtr NewLzhDecompressState() {
  return LzhDecompressStatePtr(new (std::nothrow) LzhDecompressState);
}

int CsRDecomprLZH(LzhDecompressState& state, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written) {
  *read = 0;
  *written = 0;
  inLen = std::max(inLen, 0);
  outLen = std::max(outLen, 0);
  std::int32_t headerBytes = 0;
  if ((options & CS_INIT) != 0) {
    if (const int rc = lzh::StartStream(state, in, inLen); rc != CS_OK) return rc;
    headerBytes = CS_HEAD_SIZE;
    if (inLen == CS_HEAD_SIZE) {
      *read = inLen;
      return CS_END_INBUFFER;
    }
  } else if (inLen == 0 && outLen == 0 && state.phase != LzhPhase::kEnd) {
    return CS_E_INVALID_ADDR;
  }

  lzh::Decoder decoder(state, {.in = in + headerBytes,
                               .inEnd = in + inLen,
                               .out = out,
                               .outBegin = out,
                               .outEnd = out + outLen,
                               .bits = state.bits,
                               .bitCount = state.bitCount});
  const int rc = decoder.Run();
  decoder.SaveBits();
  decoder.SaveHistory();
  // What follows the last block belongs to the stream: the rest of its last byte and the zero byte behind it.
  *read = rc == CS_END_OF_STREAM ? inLen : static_cast<std::int32_t>(decoder.cursor().in - in);
  *written = static_cast<std::int32_t>(decoder.cursor().Produced());
  return rc;
}

}  // namespace tolven

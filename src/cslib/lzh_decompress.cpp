// The careful path of the LZH decompressor: an explicit state machine that can stop at any bit of the input
// and any byte of the output. While both ends are far away, the fast loop does the work between kSymbols and
// kDistance; whatever else there is to decide, and every way in which a stream can be wrong, is decided here.
//
// How a step stops: what it needs is asked for in front of anything that it changes. A step that lacks bits
// ends the call with nothing taken, a step that lacks room leaves its code in the buffer or its match half
// copied in `length`, and the next call enters at the same phase. Bits left over from a call are kept in the
// state, at most 63 of them, so input always counts as read when it was loaded.

#include "cslib/lzh_decompress.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <type_traits>

#include "cslib/lzh_decompress_fast.h"

namespace tolven {
namespace lzh {
namespace {

static_assert(!std::is_copy_constructible_v<LzhDecompressState>);

// What became of a step: the machine moves on, or the call ends with a result that the decoder keeps.
enum class Step : bool { kMoveOn, kStop };

// One call's work on a stream. It lives as long as the call and holds the cursor by value, so that the
// compiler may keep bits and positions in registers between steps; the state is written where something has
// to outlive the call.
class Decoder {
 public:
  Decoder(LzhDecompressState& state, const BitCursor& cursor) : s_(state), c_(cursor) {}

  // Runs until the call ends. The result code; the cursor then tells what was read and written.
  CsResult Run();
  [[nodiscard]] const BitCursor& Cursor() const { return c_; }
  void SaveBits();
  void SaveHistory();

 private:
  bool Have(unsigned count);
  std::uint32_t Take(unsigned count);

  Step TakeStep();
  Step ReadPreambleCount();
  Step SkipPreamble();
  Step ReadBlockHeader();
  Step ReadDynamicCounts();
  Step ReadBitLengthLengths();
  Step ReadCodeLengths();
  Step RepeatLength(unsigned symbol, unsigned extra);
  Step BuildTables();
  [[gnu::always_inline]] Step Lookup(const DecodeTable& table, Entry* entry, unsigned* linkBits);
  Step DecodeSymbols();
  Step DecodeSymbol();
  Step DecodeDistance();
  Step CopyPending();
  Step EndBlock();

  Step MoveTo(LzhPhase phase) {
    s_.phase = phase;
    return Step::kMoveOn;
  }
  Step Stop(CsResult result) {
    result_ = result;
    return Step::kStop;
  }

  [[nodiscard]] std::uint32_t Total() const {
    return s_.total + static_cast<std::uint32_t>(c_.out.Produced());
  }
  [[nodiscard]] std::uint32_t Undelivered() const { return s_.declared - Total(); }

  LzhDecompressState& s_;
  BitCursor c_;
  CsResult result_ = CS_OK;  // once a step has stopped
};

// True iff `count` bits (at most 56) are in the buffer. If not, all input of the call is. With 8 bytes at
// hand a whole word is loaded and as much of it counted as fits; the bits above that are the ones which the
// next load brings again.
inline bool Decoder::Have(unsigned count) {
  if (c_.bitCount >= count) return true;
  if (c_.in.Left() >= sizeof(std::uint64_t)) {
    c_.bits |= LoadLittle64(c_.in.at) << c_.bitCount;
    c_.in.at += (63U - c_.bitCount) >> 3;
    c_.bitCount |= 56U;
    return true;
  }
  while (c_.bitCount < 56 && c_.in.at != c_.in.end) {
    c_.bits |= std::uint64_t{*c_.in.at++} << c_.bitCount;
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

// The preamble is two items, since how long the second one is stands in the first. Its bits mean nothing.
Step Decoder::ReadPreambleCount() {
  if (!Have(kPreambleCountBits)) return Stop(CS_END_INBUFFER);
  s_.preambleBits = Take(kPreambleCountBits);
  return MoveTo(LzhPhase::kPreambleBits);
}

Step Decoder::SkipPreamble() {
  if (!Have(s_.preambleBits)) return Stop(CS_END_INBUFFER);
  Take(s_.preambleBits);
  return MoveTo(LzhPhase::kBlockHeader);
}

// A fixed block borrows the shared tables and a dynamic one makes its own; the decoder of symbols does not
// know which it has. No state of the block before is needed: a match may reach into it, but that is a matter
// of the output.
Step Decoder::ReadBlockHeader() {
  if (!Have(3)) return Stop(CS_END_INBUFFER);
  s_.lastBlock = Take(1) != 0;
  switch (Take(2)) {
    case kBlockFixed:
      s_.litLen = kFixedLitLenTable;
      s_.dist = kFixedDistTable;
      return MoveTo(LzhPhase::kSymbols);
    case kBlockDynamic:
      return MoveTo(LzhPhase::kDynamicCounts);
    default:  // stored blocks are not part of the format
      return Stop(CS_E_UNKNOWN_TYPE);
  }
}

// The counts are read as one item, so a block with too many codes is refused before any of them is read.
Step Decoder::ReadDynamicCounts() {
  if (!Have(5 + 5 + 4)) return Stop(CS_END_INBUFFER);
  s_.litLenCodes = Take(5) + 257;
  s_.distCodes = Take(5) + 1;
  s_.bitLengthCodes = Take(4) + 4;
  if (s_.litLenCodes > kLitLenCodes || s_.distCodes > kDistCodes) return Stop(CS_E_BAD_HEADER);
  s_.lengthsRead = 0;
  s_.bitLengthLengths.fill(0);
  return MoveTo(LzhPhase::kBitLengthLengths);
}

// The code in which the lengths of the two others are sent. Lengths that are not sent are 0.
Step Decoder::ReadBitLengthLengths() {
  for (; s_.lengthsRead < s_.bitLengthCodes; ++s_.lengthsRead) {
    if (!Have(3)) return Stop(CS_END_INBUFFER);
    s_.bitLengthLengths[bl_order[s_.lengthsRead]] = static_cast<std::uint8_t>(Take(3));
  }
  const CsResult built = BuildDecodeTable(s_.bitLengthLengths, kBitLengthResults.data(), kBitLengthRootBits,
                                          s_.bitLengthPool, s_.bitLength);
  if (built != CS_OK) return Stop(built);
  s_.lengthsRead = 0;
  return MoveTo(LzhPhase::kCodeLengths);
}

// The lengths of both alphabets are one sequence, and a repetition may run from the first into the second.
Step Decoder::ReadCodeLengths() {
  const DecodeTable table = s_.bitLength;
  const std::uint64_t mask = (std::uint64_t{1} << table.rootBits) - 1;
  while (s_.lengthsRead < s_.litLenCodes + s_.distCodes) {
    constexpr unsigned kMaxItemBits = kMaxBitLengthBits + 7;  // code 18 with its repeat count
    const bool enough = Have(kMaxItemBits);
    // With too few bits the index has zeros where the missing ones will be. An entry that needs no more bits
    // than there are is the right one all the same.
    const Entry entry = table.entries[c_.bits & mask];
    if (!enough && DropBits(entry) > c_.bitCount) return Stop(CS_END_INBUFFER);
    if (Is(entry, kInvalid)) return Stop(CS_E_BAD_CODE);
    const std::uint32_t extra = Take(DropBits(entry)) >> CodeBits(entry);
    const std::uint32_t symbol = Value(entry);
    if (symbol < kRepeatPrevious) {
      s_.codeLengths[s_.lengthsRead++] = static_cast<std::uint8_t>(symbol);
    } else if (const Step step = RepeatLength(symbol, extra); step != Step::kMoveOn) {
      return step;
    }
  }
  return BuildTables();
}

// The three run codes. A run that goes on behind the last length is refused and not cut: no writer makes one,
// and the lengths lie in an array that is exactly as long as there may be.
Step Decoder::RepeatLength(unsigned symbol, unsigned extra) {
  std::uint8_t length = 0;
  unsigned count = extra + 3;
  if (symbol == kRepeatPrevious) {
    if (s_.lengthsRead == 0) return Stop(CS_E_BAD_CODE);  // there is nothing to repeat yet
    length = s_.codeLengths[s_.lengthsRead - 1];
  } else if (symbol == kRepeatZeroLong) {
    count = extra + 11;
  }
  if (count > s_.litLenCodes + s_.distCodes - s_.lengthsRead) return Stop(CS_E_BAD_CODE);
  std::fill_n(s_.codeLengths.begin() + s_.lengthsRead, count, length);
  s_.lengthsRead += count;
  return Step::kMoveOn;
}

// All lengths are there. A set without the end of the block is let through: such a block can only end by what
// is wrong with it, or by the declared length, and then the stream is refused with the next symbol.
Step Decoder::BuildTables() {
  const std::span<const std::uint8_t> lengths(s_.codeLengths.data(), s_.litLenCodes + s_.distCodes);
  CsResult built = BuildDecodeTable(lengths.first(s_.litLenCodes), kLitLenResults.data(), kLitLenRootBits,
                                    s_.litLenPool, s_.litLen);
  if (built != CS_OK) return Stop(built);
  built = BuildDecodeTable(lengths.subspan(s_.litLenCodes), kDistResults.data(), kDistRootBits, s_.distPool,
                           s_.dist);
  if (built != CS_OK) return Stop(built);
  return MoveTo(LzhPhase::kSymbols);
}

// In a stream that is cut off, the last code may be complete although fewer bits are left than the longest
// code has. It has to be decoded, so that a stream given byte by byte comes out as one that is given whole.
//
// Looks at the next code. What the bits at hand decide is decided with them alone: an entry counts once all
// of its bits, extra bits included, are there, whatever stands above them in the buffer.
inline Step Decoder::Lookup(const DecodeTable& table, Entry* entry, unsigned* linkBits) {
  Have(2 * kMaxCodeBits);  // more than any item; less is enough when it decides
  Entry found = table.entries[c_.bits & ((std::uint64_t{1} << table.rootBits) - 1)];
  *linkBits = 0;
  if (Is(found, kLink)) {
    *linkBits = DropBits(found);
    const std::uint64_t index = (c_.bits >> *linkBits) & ((std::uint64_t{1} << CodeBits(found)) - 1);
    found = table.entries[Value(found) + index];
  }
  if (*linkBits + DropBits(found) > c_.bitCount) return Stop(CS_END_INBUFFER);
  if (Is(found, kInvalid)) return Stop(CS_E_BAD_CODE);
  *entry = found;
  return Step::kMoveOn;
}

// Symbols until the block ends or a distance is due, by the fast loop as long as it is worth entering. It
// comes back at an edge, or at something that DecodeSymbol has to judge; so one symbol is always decoded here
// before the loop is tried again.
Step Decoder::DecodeSymbols() {
  while (s_.phase == LzhPhase::kSymbols) {
    const std::size_t room = std::min<std::size_t>(c_.out.Room(), Undelivered());
    if (WorthDecodingFast(c_, room)) {
      const FastExit exit = s_.decodeFast(s_, c_, room);
      if (exit == FastExit::kBlockDone) return EndBlock();
      if (exit == FastExit::kDistance) {
        return MoveTo(LzhPhase::kDistance);
      }
    }
    if (const Step step = DecodeSymbol(); step != Step::kMoveOn) return step;
  }
  return Step::kMoveOn;
}

// What is too long for the declared length is refused as soon as that is known, also if there is no room for
// it: an archive that lies about a size is found out before anything is written beyond it.
Step Decoder::DecodeSymbol() {
  Entry entry;
  unsigned linkBits;
  if (const Step step = Lookup(s_.litLen, &entry, &linkBits); step != Step::kMoveOn) return step;
  if ((entry & kLiteral) != 0) {
    // In this order: the end of the declared length is also the end of the room that counts.
    if (Undelivered() == 0) return Stop(CS_E_BAD_CODE);     // a file that goes on behind its declared length
    if (c_.out.Room() == 0) return Stop(CS_END_OUTBUFFER);  // the code stays in the buffer
    Take(linkBits + DropBits(entry));
    *c_.out.at++ = LiteralByte(entry);
    return Step::kMoveOn;
  }
  Take(linkBits);
  if (Is(entry, kEndOfBlock)) {
    Take(DropBits(entry));
    return EndBlock();
  }
  s_.length = ValueWithExtra(entry, c_.bits);
  Take(DropBits(entry));
  if (s_.length > Undelivered()) return Stop(CS_E_BAD_CODE);
  return MoveTo(LzhPhase::kDistance);
}

// A distance may reach back to the first byte of the stream and no further, and a table has no code for one
// that begins behind the window. So everything that is copied is something the stream has delivered.
Step Decoder::DecodeDistance() {
  Entry entry;
  unsigned linkBits;
  if (const Step step = Lookup(s_.dist, &entry, &linkBits); step != Step::kMoveOn) return step;
  Take(linkBits);
  s_.distance = ValueWithExtra(entry, c_.bits);
  Take(DropBits(entry));
  if (s_.distance > Total()) return Stop(CS_E_BAD_CODE);  // before the start of the output
  return MoveTo(LzhPhase::kCopy);
}

// As much of the match as there is room for. The rest waits as a shorter match at the same distance: what was
// copied by then moved both of its ends.
Step Decoder::CopyPending() {
  const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(s_.length, c_.out.Room()));
  CopyMatch(s_, c_, count, s_.distance);
  s_.length -= count;
  if (s_.length != 0) return Stop(CS_END_OUTBUFFER);
  return MoveTo(LzhPhase::kSymbols);
}

// The last block decides: with everything delivered the stream is complete, otherwise it ended short, which
// is not called an error here. Whoever knows what the data should have been can say more.
Step Decoder::EndBlock() {
  if (!s_.lastBlock) return MoveTo(LzhPhase::kBlockHeader);
  return MoveTo(Undelivered() == 0 ? LzhPhase::kEnd : LzhPhase::kShortEnd);
}

Step Decoder::TakeStep() {
  switch (s_.phase) {
    case LzhPhase::kPreambleCount:
      return ReadPreambleCount();
    case LzhPhase::kPreambleBits:
      return SkipPreamble();
    case LzhPhase::kBlockHeader:
      return ReadBlockHeader();
    case LzhPhase::kDynamicCounts:
      return ReadDynamicCounts();
    case LzhPhase::kBitLengthLengths:
      return ReadBitLengthLengths();
    case LzhPhase::kCodeLengths:
      return ReadCodeLengths();
    case LzhPhase::kSymbols:
      return DecodeSymbols();
    case LzhPhase::kDistance:
      return DecodeDistance();
    case LzhPhase::kCopy:
      return CopyPending();
    case LzhPhase::kEnd:
      return Stop(CS_END_OF_STREAM);
    case LzhPhase::kShortEnd:
      return Stop(CS_OK);
    case LzhPhase::kFailed:
      break;
  }
  return Stop(s_.failure);
}

CsResult Decoder::Run() {
  while (TakeStep() == Step::kMoveOn) {
  }
  if (result_ < 0) {
    s_.phase = LzhPhase::kFailed;
    s_.failure = result_;
  }
  return result_;
}

// Bits above bitCount are cut off, since the next call brings other bytes than those that were looked at
// here.
void Decoder::SaveBits() {
  s_.bits = c_.bits & ((std::uint64_t{1} << c_.bitCount) - 1);
  s_.bitCount = c_.bitCount;
}

// Keeps what later calls may copy from, and counts what this one delivered. The caller may do with the output
// what he likes as soon as the call returns, so the last 16 KiB are copied; but not at the end of the stream,
// which for a stream that comes out in one call means never.
void Decoder::SaveHistory() {
  const std::size_t produced = c_.out.Produced();
  const std::size_t kept = std::min<std::size_t>(produced, kWindowSize);
  s_.total += static_cast<std::uint32_t>(produced);
  if (kept == 0 || s_.total == s_.declared) return;
  // Two copies at most: up to the end of the window, and from its beginning on.
  const std::size_t at = (s_.total - kept) % kWindowSize;
  const std::size_t first = std::min<std::size_t>(kept, kWindowSize - at);
  std::memcpy(s_.window.data() + at, c_.out.at - kept, first);
  if (kept != first) std::memcpy(s_.window.data(), c_.out.at - kept + first, kept - first);
}

}  // namespace

void CopyMatch(const LzhDecompressState& state, BitCursor& cursor, std::uint32_t length,
               std::uint32_t distance) {
  const std::size_t produced = cursor.out.Produced();
  std::uint8_t* to = cursor.out.at;
  if (distance > produced) {
    // The first part stands in the window, where it may wrap around.
    const std::size_t behind = distance - produced;
    const std::size_t count = std::min<std::size_t>(length, behind);
    const std::size_t at = (state.total - behind) % kWindowSize;
    const std::size_t first = std::min<std::size_t>(count, kWindowSize - at);
    to = std::copy_n(state.window.data() + at, first, to);
    to = std::copy_n(state.window.data(), count - first, to);
    length -= static_cast<std::uint32_t>(count);
  }
  // A match may overlap itself, so byte by byte. A distance that reaches to before this call's output was
  // used up above, unless the match goes on into the output.
  if (length != 0) {
    const std::uint8_t* from = to - distance;
    for (; length != 0; --length) *to++ = *from++;
  }
  cursor.out.at = to;
}

}  // namespace lzh

void StartDecomprLZH(LzhDecompressState& state, std::int32_t length) {
  state.phase = LzhPhase::kPreambleCount;
  state.failure = CS_OK;
  state.declared = static_cast<std::uint32_t>(length);
  state.total = 0;
  state.bits = 0;
  state.bitCount = 0;
}

CsResult CsRDecomprLZH(LzhDecompressState& state, CsInput& in, CsOutput& out) {
  // What this call produces counts from here, even if the caller's cursor has moved before.
  lzh::Decoder decoder(state, {CsInput(in.Rest()), CsOutput(out.Rest()), state.bits, state.bitCount});
  const CsResult result = decoder.Run();
  decoder.SaveBits();
  decoder.SaveHistory();
  // What follows the last block belongs to the stream: the rest of its last byte and the zero byte behind it.
  in.at = result == CS_END_OF_STREAM ? in.end : decoder.Cursor().in.at;
  out.at = decoder.Cursor().out.at;
  return result;
}

}  // namespace tolven

#include "cslib/lzc_decompress.h"

#include <algorithm>
#include <cstring>

#include "cslib/lzc_format.h"

namespace tolven {
namespace lzc {
namespace {

constexpr std::size_t kChunk = sizeof(std::uint64_t);
constexpr int kNoCode = -1;
// Bits that DecodeFast may find from before: see there, memory safety hangs on it.
constexpr unsigned kMaxBitsOnEntry = 7;

// The string of `prefix` with one byte more. Either it still fits the last chunk, and the new string shares
// the parent of the old one; or the chunk was full, and the old string becomes the parent of a chunk with one
// byte. Eight bytes "abcdefgh" and an "i":  {tail "abcdefgh", parent -}  ->  {tail "i", parent: code of
// "abcdefgh"}.
String Append(const String& prefix, std::uint32_t prefixCode, std::uint8_t byte) {
  const unsigned inTail = prefix.length % kChunk;
  const std::uint64_t shifted = static_cast<std::uint64_t>(byte) << (8 * inTail);
  const bool newChunk = inTail == 0;
  return {newChunk ? byte : prefix.tail | shifted,
          newChunk ? static_cast<std::uint16_t>(prefixCode) : prefix.parent,
          static_cast<std::uint16_t>(prefix.length + 1), prefix.first};
}

// The rest of the group is to be passed over, and codes have `width` bits from here on.
void SetWidth(LzcDecompressState& state, int width) {
  state.skip += (state.codesLeft % kCodesPerGroup) * static_cast<unsigned>(state.width);
  state.codesLeft = kCodesPerGroup;
  state.width = width;
  state.maxCode = MaxCode(width, state.maxBits);
}

// From the last chunk back to the first. Each store but the first one overwrites nothing that counts, since
// it is 8 whole bytes of the string; the first one, of the last chunk, writes up to 7 bytes behind the
// string. The next string goes there, so they are wrong only for a moment.
void WriteString(const std::array<String, kReadMaxCodes>& strings, const String& string, std::uint8_t* to) {
  std::size_t at = (string.length - 1U) & ~(kChunk - 1);
  StoreLittle64(to + at, string.tail);
  std::uint32_t parent = string.parent;
  while (at > 0) {
    at -= kChunk;
    StoreLittle64(to + at, strings[parent].tail);
    parent = strings[parent].parent;
  }
}

// Decodes while there is comfortably enough of both: 8 bytes of input, from which four codes of at most 14
// bits are taken, and room for each string and 7 bytes more. Everything out of the ordinary (first code,
// CLEAR, a new width, a code that cannot be) is left to the careful path, with nothing of it consumed.
//
// What keeps it inside of memory, with a stream that may say anything:
//
//  - Fewer than 8 bits are held on entry (kMaxBitsOnEntry). On leaving, whole bytes are given back to the
//  input,
//    and this makes sure that the loop itself has taken them. With 8 bits or more from an earlier call, a
//    loop that has not refilled once would step to before the caller's buffer, and the next load would read
//    there. The careful path may well hold up to 13 bits when a call ends inside a code; it has used them up
//    after that code.
//  - A refill leaves 56 bits or more, and four codes need no more than that.
//  - Strings exist below freeEnt, and the one at freeEnt is made before it is looked at: a code above freeEnt
//  is
//    refused. freeEnt <= maxCode < 2^14 when a string is entered, so it lies in the table. Only in block mode
//    is there a code below freeEnt without a string, CLEAR, and it is not taken here. oldCode was a code
//    before, so it has a string, and so has every parent, which was oldCode once.
//  - A string is no longer than kMaxString. It is written if it and kChunk bytes more fit, since its last
//  store
//    may go up to 7 bytes beyond it.
void DecodeFast(LzcDecompressState& state, CsInput& in, CsOutput& out) {
  static_assert(4 * kReadMaxBits <= 56);
  std::array<String, kReadMaxCodes>& strings = state.strings;
  const auto width = static_cast<unsigned>(state.width);
  const std::uint32_t mask = (1U << width) - 1;
  const std::uint32_t clear = state.blockMode ? kClear : kReadMaxCodes;  // kReadMaxCodes: no code is that
  const std::uint32_t maxCode = state.maxCode;
  const std::uint32_t maxMaxCode = state.maxMaxCode;
  std::uint32_t freeEnt = state.freeEnt;
  std::uint32_t oldCode = static_cast<std::uint32_t>(state.oldCode);
  std::uint32_t codesLeft = state.codesLeft;
  std::uint64_t bits = state.bits;
  unsigned bitCount = state.bitCount;
  const std::uint8_t* from = in.at;
  std::uint8_t* to = out.at;
  String old = strings[oldCode];
  bool ordinary = true;

  while (ordinary && in.end - from >= static_cast<std::ptrdiff_t>(kChunk)) {
    // The load brings more bits than are counted; the next one brings the same bits to the same places.
    bits |= LoadLittle64(from) << bitCount;
    from += (63 - bitCount) >> 3;
    bitCount |= 56;
    for (int i = 0; i < 4; ++i) {
      const auto code = static_cast<std::uint32_t>(bits) & mask;
      if (freeEnt > maxCode || code > freeEnt || code == clear) [[unlikely]] {
        ordinary = false;
        break;
      }
      // Code freeEnt is the string this very code brings into the dictionary: the last one and its own first
      // byte.
      if (freeEnt < maxMaxCode) {
        strings[freeEnt] = Append(old, oldCode, code == freeEnt ? old.first : strings[code].first);
      }
      const String string = strings[code];
      if (out.end - to < static_cast<std::ptrdiff_t>(string.length + kChunk)) [[unlikely]] {
        ordinary = false;
        break;
      }
      WriteString(strings, string, to);
      to += string.length;
      if (freeEnt < maxMaxCode) ++freeEnt;
      old = string;
      oldCode = code;
      bits >>= width;
      bitCount -= width;
      --codesLeft;
    }
  }
  // Whole bytes go back; all of them came from this call's input.
  from -= bitCount >> 3;
  bitCount &= 7;
  state.bits = bits & ((1U << bitCount) - 1);
  state.bitCount = bitCount;
  state.freeEnt = freeEnt;
  state.oldCode = static_cast<int>(oldCode);
  state.codesLeft = codesLeft % kCodesPerGroup;  // counted down through 0; 2^32 is a multiple of a group
  state.produced += static_cast<std::int32_t>(to - out.at);
  in.at = from;
  out.at = to;
}

// True when there are `count` bits.
bool Need(LzcDecompressState& state, CsInput& in, unsigned count) {
  while (state.bitCount < count) {
    if (in.at == in.end) return false;
    state.bits |= static_cast<std::uint64_t>(*in.at++) << state.bitCount;
    state.bitCount += 8;
  }
  return true;
}

void Drop(LzcDecompressState& state, unsigned count) {
  state.bits >>= count;
  state.bitCount -= count;
}

// A byte at a time, so that a call may end anywhere in what is left out.
bool Skip(LzcDecompressState& state, CsInput& in) {
  while (state.skip > 0) {
    const unsigned part = std::min(state.skip, 8U);
    if (!Need(state, in, part)) return false;
    Drop(state, part);
    state.skip -= part;
  }
  return true;
}

// What a code means, its string left in the pending buffer. CS_OK or a negative code. All rules about codes
// stand here; the fast path only knows which codes it may take without asking.
CsResult TakeCode(LzcDecompressState& state, std::uint32_t code) {
  if (state.oldCode == kNoCode) {
    // At the beginning and behind CLEAR there are no strings yet, and a second CLEAR would mean nothing.
    if (code >= kLiterals) return CS_E_BAD_CODE;
  } else if (state.blockMode && code == kClear) {
    state.freeEnt = kFirstFree;
    state.oldCode = kNoCode;
    SetWidth(state, kInitBits);
    return CS_OK;
  } else {
    if (code > state.freeEnt) return CS_E_BAD_CODE;
    if (state.freeEnt < state.maxMaxCode) {
      const auto oldCode = static_cast<std::uint32_t>(state.oldCode);
      const String& old = state.strings[oldCode];
      const std::uint8_t first = code == state.freeEnt ? old.first : state.strings[code].first;
      state.strings[state.freeEnt++] = Append(old, oldCode, first);
    }
  }
  state.oldCode = static_cast<int>(code);
  WriteString(state.strings, state.strings[code], state.pending.data());
  state.pendingAt = 0;
  state.pendingEnd = state.strings[code].length;
  return CS_OK;
}

void DrainPending(LzcDecompressState& state, CsOutput& out) {
  const std::size_t count = std::min(state.pendingEnd - state.pendingAt, out.Room());
  if (count == 0) return;
  std::memcpy(out.at, state.pending.data() + state.pendingAt, count);
  state.pendingAt += count;
  state.produced += static_cast<std::int32_t>(count);
  out.at += count;
}

// The careful path, with the fast one tried in front of every code. The width is changed when the next code
// is about to be read, not as soon as it is known: the stream may end first, and then without the rest of a
// group.
CsResult Run(LzcDecompressState& state, CsInput& in, CsOutput& out) {
  for (;;) {
    DrainPending(state, out);
    if (state.produced == state.total) return CS_END_OF_STREAM;
    if (out.Room() == 0) return CS_END_OUTBUFFER;
    if (!Skip(state, in)) return CS_END_INBUFFER;
    if (state.oldCode != kNoCode && state.bitCount <= kMaxBitsOnEntry) DecodeFast(state, in, out);
    if (state.freeEnt > state.maxCode) {
      SetWidth(state, state.width + 1);
      continue;
    }
    const auto width = static_cast<unsigned>(state.width);
    if (!Need(state, in, width)) return CS_END_INBUFFER;
    const auto code = static_cast<std::uint32_t>(state.bits) & ((1U << width) - 1);
    Drop(state, width);
    state.codesLeft = (state.codesLeft + kCodesPerGroup - 1) % kCodesPerGroup;
    if (const CsResult bad = TakeCode(state, code); bad != CS_OK) return bad;
  }
}

}  // namespace
}  // namespace lzc

void StartDecomprLZC(LzcDecompressState& state, std::int32_t total, std::uint8_t parameter) {
  using namespace lzc;
  state.failure = CS_OK;
  for (std::uint32_t byte = 0; byte < kLiterals; ++byte) {
    state.strings[byte] = {byte, 0, 1, static_cast<std::uint8_t>(byte)};
  }
  state.bits = 0;
  state.bitCount = state.skip = 0;
  state.maxBits = parameter & kMaxBitsMask;
  state.maxMaxCode = 1U << state.maxBits;
  state.blockMode = (parameter & kBlockMode) != 0;
  state.width = kInitBits;
  state.codesLeft = kCodesPerGroup;
  state.maxCode = MaxCode(kInitBits, state.maxBits);
  state.freeEnt = state.blockMode ? kFirstFree : kLiterals;
  state.oldCode = kNoCode;
  state.total = total;
  state.produced = 0;
  state.pendingAt = state.pendingEnd = 0;
}

CsResult CsRDecomprLZC(LzcDecompressState& state, CsInput& in, CsOutput& out) {
  if (state.failure != CS_OK) return state.failure;
  const auto missing = static_cast<std::size_t>(state.total - state.produced);
  if (missing > 0 && out.Room() == 0) return out.begin == nullptr ? CS_E_NO_OUT_BUFFER : CS_E_OUT_BUFFER_LEN;
  // A string that reaches beyond the declared length is cut there.
  CsOutput declared(out.Rest().first(std::min(out.Room(), missing)));
  const CsResult result = lzc::Run(state, in, declared);
  out.at = declared.at;
  if (result < 0) state.failure = result;
  return result;
}

}  // namespace tolven

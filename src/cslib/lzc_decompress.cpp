#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <new>

#include "cslib/cslib.h"
#include "cslib/lzc.h"
#include "cslib/lzc_format.h"
#include "cslib/stream_header.h"

namespace tolven {
namespace lzc {
namespace {

constexpr std::uint32_t kMaxCodes = 1U << kReadMaxBits;
constexpr std::size_t kChunk = 8;
// Strings grow by one byte a code, so none is longer than this.
constexpr std::size_t kMaxString = kMaxCodes;
constexpr int kNoCode = -1;

// A string of the dictionary, as its last 1 to 8 bytes and the code of the string before them (which is a
// multiple of 8 long). So most strings are one store of 8 bytes, and long ones go backwards in steps of 8.
// First byte lowest.
struct String {
  std::uint64_t tail;
  std::uint16_t parent;
  std::uint16_t length;
  std::uint8_t first;
};
static_assert(sizeof(String) == 16);
static_assert(kMaxString <= 0xFFFF);

void Store64(std::uint8_t* to, std::uint64_t value) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(to, &value, sizeof value);
  } else {
    for (unsigned i = 0; i < kChunk; ++i) to[i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

std::uint64_t Load64(const std::uint8_t* from) {
  std::uint64_t value = 0;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&value, from, sizeof value);
  } else {
    for (unsigned i = 0; i < kChunk; ++i) value |= static_cast<std::uint64_t>(from[i]) << (8 * i);
  }
  return value;
}

String Append(const String& prefix, std::uint32_t prefixCode, std::uint8_t byte) {
  const unsigned inTail = prefix.length % kChunk;
  const std::uint64_t shifted = static_cast<std::uint64_t>(byte) << (8 * inTail);
  const bool newChunk = inTail == 0;
  return {newChunk ? byte : prefix.tail | shifted,
          newChunk ? static_cast<std::uint16_t>(prefixCode) : prefix.parent,
          static_cast<std::uint16_t>(prefix.length + 1), prefix.first};
}

struct Input {
  const std::uint8_t* at;
  const std::uint8_t* end;
};

struct Output {
  std::uint8_t* at;
  std::uint8_t* end;  // of the caller's room, or where the declared length is reached
  std::size_t Room() const { return static_cast<std::size_t>(end - at); }
};

}  // namespace
}  // namespace lzc

struct LzcDecompressState {
  int refusal = CS_E_NO_STAGING;  // why there is no stream to go on with; CS_OK while there is one
  std::array<lzc::String, lzc::kMaxCodes> strings;
  std::uint64_t bits;  // taken from the input and not used; between calls less than a code
  unsigned bitCount;
  unsigned skip;  // bits of a group that was left before its end, still to be passed over
  int width;
  int maxBits;
  bool blockMode;
  std::uint32_t freeEnt;
  std::uint32_t maxCode;
  std::uint32_t maxMaxCode;
  int oldCode;              // kNoCode: the next code must be a literal
  std::uint32_t codesLeft;  // of the current group
  std::int32_t total;
  std::int32_t produced;
  // A string that did not fit the caller's room.
  std::array<std::uint8_t, lzc::kMaxString + lzc::kChunk> pending;
  std::size_t pendingAt;
  std::size_t pendingEnd;
};

namespace lzc {
namespace {

void SetWidth(LzcDecompressState& state, int width) {
  // The rest of the group has no meaning.
  state.skip += (state.codesLeft % kCodesPerGroup) * static_cast<unsigned>(state.width);
  state.codesLeft = kCodesPerGroup;
  state.width = width;
  state.maxCode = MaxCode(width, state.maxBits);
}

void Start(LzcDecompressState& state, std::int32_t total, int maxBits, bool blockMode) {
  for (std::uint32_t byte = 0; byte < kLiterals; ++byte) {
    state.strings[byte] = {byte, 0, 1, static_cast<std::uint8_t>(byte)};
  }
  state.bits = 0;
  state.bitCount = state.skip = 0;
  state.maxBits = maxBits;
  state.maxMaxCode = 1U << maxBits;
  state.blockMode = blockMode;
  state.width = kInitBits;
  state.codesLeft = kCodesPerGroup;
  SetWidth(state, kInitBits);
  state.freeEnt = blockMode ? kFirstFree : kLiterals;
  state.oldCode = kNoCode;
  state.total = total;
  state.produced = 0;
  state.pendingAt = state.pendingEnd = 0;
}

// Writes up to 7 bytes behind the string.
void WriteString(const std::array<String, kMaxCodes>& strings, const String& string, std::uint8_t* to) {
  std::size_t at = (string.length - 1U) & ~(kChunk - 1);
  Store64(to + at, string.tail);
  std::uint32_t parent = string.parent;
  while (at > 0) {
    at -= kChunk;
    Store64(to + at, strings[parent].tail);
    parent = strings[parent].parent;
  }
}

// Decodes while there is comfortably enough of both: 8 bytes of input, from which four codes of at most 14
// bits are taken, and room for each string and 7 bytes more. Everything out of the ordinary (first code,
// CLEAR, a new width, a code that cannot be) is left to the careful path, with nothing of it consumed.
void DecodeFast(LzcDecompressState& state, Input& in, Output& out) {
  static_assert(4 * kReadMaxBits <= 56);
  std::array<String, kMaxCodes>& strings = state.strings;
  const auto width = static_cast<unsigned>(state.width);
  const std::uint32_t mask = (1U << width) - 1;
  const std::uint32_t clear = state.blockMode ? kClear : kMaxCodes;
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
    bits |= Load64(from) << bitCount;
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
  state.codesLeft = codesLeft % kCodesPerGroup;
  state.produced += static_cast<std::int32_t>(to - out.at);
  in.at = from;
  out.at = to;
}

// True when there are `count` bits.
bool Need(LzcDecompressState& state, Input& in, unsigned count) {
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

bool Skip(LzcDecompressState& state, Input& in) {
  while (state.skip > 0) {
    const unsigned part = std::min(state.skip, 8U);
    if (!Need(state, in, part)) return false;
    Drop(state, part);
    state.skip -= part;
  }
  return true;
}

// What a code means, its string left in the pending buffer. CS_OK or a negative code.
int TakeCode(LzcDecompressState& state, std::uint32_t code) {
  if (state.oldCode == kNoCode) {
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

void DrainPending(LzcDecompressState& state, Output& out) {
  const std::size_t count = std::min(state.pendingEnd - state.pendingAt, out.Room());
  if (count == 0) return;
  std::memcpy(out.at, state.pending.data() + state.pendingAt, count);
  state.pendingAt += count;
  state.produced += static_cast<std::int32_t>(count);
  out.at += count;
}

int Run(LzcDecompressState& state, Input& in, Output& out) {
  for (;;) {
    DrainPending(state, out);
    if (state.produced == state.total) return CS_END_OF_STREAM;
    if (out.Room() == 0) return CS_END_OUTBUFFER;
    if (!Skip(state, in)) return CS_END_INBUFFER;
    if (state.oldCode != kNoCode && state.bitCount < 8) DecodeFast(state, in, out);
    if (state.freeEnt > state.maxCode) {
      SetWidth(state, state.width + 1);
      continue;
    }
    const auto width = static_cast<unsigned>(state.width);
    if (!Need(state, in, width)) return CS_END_INBUFFER;
    const auto code = static_cast<std::uint32_t>(state.bits) & ((1U << width) - 1);
    Drop(state, width);
    state.codesLeft = (state.codesLeft + kCodesPerGroup - 1) % kCodesPerGroup;
    if (const int bad = TakeCode(state, code); bad != CS_OK) return bad;
  }
}

// Reads the stream header; CS_OK or a negative code.
int StartCall(LzcDecompressState& state, const std::uint8_t* header, std::int32_t inLen) {
  if (inLen < CS_HEAD_SIZE) return CS_E_IN_BUFFER_LEN;
  std::int32_t total = 0;
  if (const int refused = ReadDeclaredLength(header, &total); refused != CS_OK) return refused;
  const std::uint8_t parameter = header[CS_HEAD_SIZE - 1];
  const int maxBits = parameter & kMaxBitsMask;
  if (maxBits < kInitBits || maxBits > kReadMaxBits) return CS_E_MAXBITS;
  Start(state, total, maxBits, (parameter & kBlockMode) != 0);
  return CS_OK;
}

// A start call may come without any room: it reads the header and then says that it wants output.
int CheckCall(const LzcDecompressState& state, const std::uint8_t* in, std::int32_t inLen,
              const std::uint8_t* out, std::int32_t outLen, bool start) {
  if (inLen < 0) return CS_E_IN_BUFFER_LEN;
  if (outLen < 0) return CS_E_OUT_BUFFER_LEN;
  if (start && outLen == 0) return CS_OK;
  if (!start && state.produced == state.total) return CS_OK;
  if (out == nullptr) return CS_E_NO_OUT_BUFFER;
  if (in == out && inLen > (start ? CS_HEAD_SIZE : 0)) return CS_E_SAME_BUFFER;
  return outLen == 0 ? CS_E_OUT_BUFFER_LEN : CS_OK;
}

}  // namespace
}  // namespace lzc

void LzcDecompressStateDeleter::operator()(LzcDecompressState* state) const {
  const std::unique_ptr<LzcDecompressState> owner(state);
}

LzcDecompressStatePtr NewLzcDecompressState() {
  try {
    return LzcDecompressStatePtr(std::make_unique<LzcDecompressState>().release());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int CsRDecomprLZC(LzcDecompressState& state, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written) {
  *read = *written = 0;
  const bool start = (options & CS_INIT) != 0;
  if (!start && state.refusal != CS_OK) return state.refusal;
  if (const int refused = lzc::CheckCall(state, in, inLen, out, outLen, start); refused != CS_OK) {
    if (start) state.refusal = refused;
    return refused;
  }
  lzc::Input input{in, in == nullptr ? in : in + inLen};
  if (start) {
    state.refusal = lzc::StartCall(state, in, inLen);
    if (state.refusal != CS_OK) return state.refusal;
    input.at += CS_HEAD_SIZE;
    if (input.at == input.end && state.total > 0) {
      *read = CS_HEAD_SIZE;
      return CS_END_INBUFFER;
    }
  }
  const std::int32_t room = std::min(outLen, state.total - state.produced);
  lzc::Output output{out, out == nullptr ? out : out + room};
  const int result = lzc::Run(state, input, output);
  if (result < 0) state.refusal = result;
  *read = static_cast<std::int32_t>(input.at - in);
  *written = static_cast<std::int32_t>(output.at - out);
  return result;
}

}  // namespace tolven

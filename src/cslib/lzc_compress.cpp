#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "cslib/cslib.h"
#include "cslib/lzc.h"
#include "cslib/lzc_dictionary.h"
#include "cslib/lzc_format.h"
#include "cslib/lzc_packer.h"

namespace tolven {
namespace lzc {
namespace {

constexpr std::uint32_t kCheckGap = 4096;  // input bytes between two looks at the ratio

// What one input byte can bring at most: a code and a filled up group, twice when the second code is CLEAR.
constexpr std::size_t kStepBytes = 2 * (2 + static_cast<std::size_t>(kWriteMaxBits));
constexpr std::size_t kOutMargin = kStepBytes + CodePacker::kSlack;

}  // namespace
}  // namespace lzc

struct LzcCompressState {
  int refusal = CS_E_NO_STAGING;  // why there is no stream to go on with; CS_OK while there is one
  lzc::Dictionary dictionary;
  lzc::CodePacker packer;
  std::uint32_t maxCode;
  std::int32_t prefix;  // the code of what was read and not yet packed; -1 before the first byte
  std::int32_t total;
  std::int64_t bytesIn;
  std::int64_t checkpoint;
  std::int64_t ratio;
  bool ended;  // the last code is packed
  // Bytes that did not fit the caller's room; the coder does not run on while there are any.
  std::array<std::uint8_t, lzc::kOutMargin + 1> pending;
  std::size_t pendingAt;
  std::size_t pendingEnd;
};

namespace lzc {
namespace {

void Start(LzcCompressState& state, std::int32_t total) {
  state.dictionary.Clear();
  state.packer.Start();
  state.maxCode = MaxCode(kInitBits, kWriteMaxBits);
  state.prefix = -1;
  state.total = total;
  state.bytesIn = 0;
  state.checkpoint = kCheckGap;
  state.ratio = 0;
  state.ended = false;
  state.pendingAt = state.pendingEnd = 0;
}

// Packs one code. The dictionary decides on the width of the next code as it stands now, before the pair that
// this code ended is entered: the decompressor is one entry behind, too.
std::uint8_t* PackCode(LzcCompressState& state, CodePacker& packer, std::uint32_t code, std::uint8_t* to) {
  to = packer.Put(code, to);
  if (state.dictionary.Next() > state.maxCode) [[unlikely]] {
    to = packer.Switch(packer.Width() + 1, to);
    state.maxCode = MaxCode(packer.Width(), kWriteMaxBits);
  }
  return to;
}

// With the dictionary full: starts anew once the stream compresses no better than at the last look.
std::uint8_t* CheckRatio(LzcCompressState& state, CodePacker& packer, std::uint8_t* to) {
  state.checkpoint = state.bytesIn + kCheckGap;
  const std::int64_t bytesOut = packer.BytesOut();
  std::int64_t ratio = 0;
  if (state.bytesIn > 0x7FFFFF) {
    ratio = bytesOut >> 8 == 0 ? 0x7FFFFFFF : state.bytesIn / (bytesOut >> 8);
  } else {
    ratio = (state.bytesIn << 8) / bytesOut;
  }
  if (state.ratio < ratio) {
    state.ratio = ratio;
    return to;
  }
  state.ratio = 0;
  state.dictionary.Clear();
  to = packer.Put(kClear, to);  // at the old width
  to = packer.Switch(kInitBits, to);
  state.maxCode = MaxCode(kInitBits, kWriteMaxBits);
  return to;
}

// Takes bytes of `in` until they are used up or `stopAt` is reached; writes less than kOutMargin bytes behind
// it.
std::uint8_t* Encode(LzcCompressState& state, const std::uint8_t** in, const std::uint8_t* inEnd,
                     std::uint8_t* to, const std::uint8_t* stopAt) {
  CodePacker packer = state.packer;
  auto prefix = static_cast<std::uint32_t>(state.prefix);
  const std::uint8_t* from = *in;
  while (from < inEnd) {
    const std::uint32_t byte = *from++;
    std::uint32_t place = 0;
    const std::uint32_t code = state.dictionary.Find(prefix, byte, &place);
    if (code != Dictionary::kAbsent) {
      prefix = code;
      continue;
    }
    to = PackCode(state, packer, prefix, to);
    if (!state.dictionary.Full()) {
      state.dictionary.Insert(place, prefix, byte);
    } else if (state.bytesIn + (from - *in) >= state.checkpoint) {
      state.bytesIn += from - *in;
      *in = from;
      to = CheckRatio(state, packer, to);
    }
    prefix = byte;
    if (to >= stopAt) break;
  }
  state.packer = packer;
  state.prefix = static_cast<std::int32_t>(prefix);
  state.bytesIn += from - *in;
  *in = from;
  return to;
}

// Into the pending buffer until something lies there.
void EncodePending(LzcCompressState& state, const std::uint8_t** in, const std::uint8_t* inEnd) {
  std::uint8_t* start = state.pending.data();
  state.pendingAt = 0;
  state.pendingEnd = static_cast<std::size_t>(Encode(state, in, inEnd, start, start + 1) - start);
}

void Finish(LzcCompressState& state) {
  std::uint8_t* start = state.pending.data();
  std::uint8_t* to = PackCode(state, state.packer, static_cast<std::uint32_t>(state.prefix), start);
  to = state.packer.Finish(to);
  state.pendingAt = 0;
  state.pendingEnd = static_cast<std::size_t>(to - start);
  state.ended = true;
}

// True when nothing is left.
bool DrainPending(LzcCompressState& state, std::uint8_t** to, const std::uint8_t* end) {
  const std::size_t count = std::min(state.pendingEnd - state.pendingAt, static_cast<std::size_t>(end - *to));
  std::memcpy(*to, state.pending.data() + state.pendingAt, count);
  state.pendingAt += count;
  *to += count;
  return state.pendingAt == state.pendingEnd;
}

int Run(LzcCompressState& state, const std::uint8_t** in, const std::uint8_t* inEnd, std::uint8_t** to,
        const std::uint8_t* end) {
  for (;;) {
    if (!DrainPending(state, to, end)) return CS_END_OUTBUFFER;
    if (state.ended) return CS_END_OF_STREAM;
    if (state.bytesIn == state.total) {
      Finish(state);
    } else if (*in == inEnd) {
      return CS_END_INBUFFER;
    } else if (state.prefix < 0) {
      state.prefix = *(*in)++;
      state.bytesIn = 1;
    } else if (static_cast<std::size_t>(end - *to) > kOutMargin) {
      *to = Encode(state, in, inEnd, *to, end - kOutMargin);
    } else {
      EncodePending(state, in, inEnd);
    }
  }
}

int CheckCall(const LzcCompressState& state, const std::uint8_t* in, std::int32_t inLen,
              const std::uint8_t* out, std::int32_t outLen, bool start) {
  if (inLen < 0) return CS_E_IN_BUFFER_LEN;
  if (out == nullptr) return CS_E_NO_OUT_BUFFER;
  if (inLen > 0 && in == out) return CS_E_SAME_BUFFER;
  const bool pending = !start && state.pendingAt < state.pendingEnd;
  const std::int32_t least = start ? CS_HEAD_SIZE : pending ? 1 : 0;
  return outLen < least ? CS_E_OUT_BUFFER_LEN : CS_OK;
}

}  // namespace
}  // namespace lzc

void LzcCompressStateDeleter::operator()(LzcCompressState* state) const {
  const std::unique_ptr<LzcCompressState> owner(state);
}

LzcCompressStatePtr NewLzcCompressState() {
  try {
    return LzcCompressStatePtr(std::make_unique<LzcCompressState>().release());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int CsRComprLZC(LzcCompressState& state, std::int32_t total, const std::uint8_t* in, std::int32_t inLen,
                std::uint8_t* out, std::int32_t outLen, int options, std::int32_t* read,
                std::int32_t* written) {
  *read = *written = 0;
  const bool start = (options & CS_INIT) != 0;
  if (!start && state.refusal != CS_OK) return state.refusal;
  if (const int refused = lzc::CheckCall(state, in, inLen, out, outLen, start); refused != CS_OK) {
    if (start) state.refusal = refused;
    return refused;
  }
  std::uint8_t* to = out;
  if (start) {
    // Unlike LZH, a stream of no bytes does not exist: there would be no first code.
    state.refusal = total < 1 ? CS_E_INVALID_LEN : CS_OK;
    if (state.refusal != CS_OK) return state.refusal;
    const auto algorithm = static_cast<std::uint8_t>((options & CS_CHECKSUM) | 0x10 | CS_ALG_CODE_LZC);
    CsRSetHead(out, total, algorithm, lzc::kWriteMaxBits | lzc::kBlockMode);
    to += CS_HEAD_SIZE;
    lzc::Start(state, total);
  }
  // Input beyond the declared length is left alone.
  const auto wanted = static_cast<std::int32_t>(std::min<std::int64_t>(inLen, state.total - state.bytesIn));
  const std::uint8_t* from = in;
  const int result = lzc::Run(state, &from, wanted == 0 ? in : in + wanted, &to, out + outLen);
  *read = static_cast<std::int32_t>(from - in);
  *written = static_cast<std::int32_t>(to - out);
  return result;
}

}  // namespace tolven

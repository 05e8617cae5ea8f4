#include "cslib/lzc_compress.h"

#include <algorithm>
#include <cstring>

#include "cslib/lzc_format.h"

namespace tolven {
namespace lzc {
namespace {

// Input bytes between two looks at the ratio. compress(1) has 10000 here; streams of this engine were always
// made with 4096, and a reader sees the difference only as CLEAR codes that come earlier.
constexpr std::uint32_t kCheckGap = 4096;

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
//
// The ratio is taken with 8 bits behind the point, and beyond 8 MiB of input without the multiplication,
// which would not have fit into 32 bits. Wider numbers could do without the second form, but the two round
// differently, and where CLEAR comes is part of the stream's fixed choices.
std::uint8_t* CheckRatio(LzcCompressState& state, CodePacker& packer, std::uint8_t* to) {
  state.checkpoint = state.bytesIn + kCheckGap;
  const std::int64_t bytesOut = packer.BytesOut();
  std::int64_t ratio = 0;
  if (state.bytesIn > 0x7FFFFF) {
    ratio = bytesOut >> 8 == 0 ? 0x7FFFFFFF : state.bytesIn / (bytesOut >> 8);
  } else {
    ratio = (state.bytesIn << 8) / bytesOut;  // the header counts, so there are at least 8 bytes
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

// Takes input until it is used up or `stopAt` is reached; writes less than kOutMargin bytes behind it.
//
// A step is one input byte. It writes nothing while the string in `prefix` and the byte are in the dictionary
// together, and kStepBytes at most otherwise. `stopAt` is looked at behind steps that wrote: so one step may
// begin right below it and end up to kStepBytes behind it, and the packer stores up to kSlack bytes further.
std::uint8_t* Encode(LzcCompressState& state, CsInput& in, std::uint8_t* to, const std::uint8_t* stopAt) {
  CodePacker packer = state.packer;
  auto prefix = static_cast<std::uint32_t>(state.prefix);
  const std::uint8_t* from = in.at;
  const std::uint8_t* const end = in.end;  // a local: the bytes stored below might be the cursor's own
  while (from < end) {
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
    } else if (state.bytesIn + (from - in.at) >= state.checkpoint) {
      // The count of the whole stream is brought up to date only where somebody looks at it.
      state.bytesIn += from - in.at;
      in.at = from;
      to = CheckRatio(state, packer, to);
    }
    prefix = byte;
    if (to >= stopAt) break;
  }
  state.packer = packer;
  state.prefix = static_cast<std::int32_t>(prefix);
  state.bytesIn += from - in.at;
  in.at = from;
  return to;
}

// Into the pending buffer until something lies there. This is how a stream gets through room of one byte.
void EncodePending(LzcCompressState& state, CsInput& in) {
  std::uint8_t* start = state.pending.data();
  state.pendingAt = 0;
  state.pendingEnd = static_cast<std::size_t>(Encode(state, in, start, start + 1) - start);
}

// The string that was being collected, and the last bits filled up to a byte. By way of the pending buffer
// like any step near the edge, since the caller's room may be anything.
void Finish(LzcCompressState& state) {
  std::uint8_t* start = state.pending.data();
  std::uint8_t* to = PackCode(state, state.packer, static_cast<std::uint32_t>(state.prefix), start);
  to = state.packer.Finish(to);
  state.pendingAt = 0;
  state.pendingEnd = static_cast<std::size_t>(to - start);
  state.ended = true;
}

// True when nothing is left.
bool DrainPending(LzcCompressState& state, CsOutput& out) {
  const std::size_t count = std::min(state.pendingEnd - state.pendingAt, out.Room());
  std::memcpy(out.at, state.pending.data() + state.pendingAt, count);
  state.pendingAt += count;
  out.at += count;
  return state.pendingAt == state.pendingEnd;
}

// Pending bytes, then the first byte of all, which has nothing before it to be joined to, then straight into
// the caller's room as long as a step surely fits, and through the pending buffer where it may not.
CsResult Run(LzcCompressState& state, CsInput& in, CsOutput& out) {
  for (;;) {
    if (!DrainPending(state, out)) return CS_END_OUTBUFFER;
    if (state.ended) return CS_END_OF_STREAM;
    if (state.bytesIn == state.total) {
      Finish(state);
    } else if (in.Left() == 0) {
      return CS_END_INBUFFER;
    } else if (state.prefix < 0) {
      state.prefix = *in.at++;
      state.bytesIn = 1;
    } else if (out.Room() > kOutMargin) {
      out.at = Encode(state, in, out.at, out.end - kOutMargin);
    } else {
      EncodePending(state, in);
    }
  }
}

}  // namespace
}  // namespace lzc

void StartComprLZC(LzcCompressState& state, std::int32_t total) {
  state.failure = CS_OK;
  state.dictionary.Clear();
  state.packer.Start();
  state.maxCode = lzc::MaxCode(lzc::kInitBits, lzc::kWriteMaxBits);
  state.prefix = -1;
  state.total = total;
  state.bytesIn = 0;
  state.checkpoint = lzc::kCheckGap;
  state.ratio = 0;
  state.ended = false;
  state.pendingAt = state.pendingEnd = 0;
}

CsResult CsRComprLZC(LzcCompressState& state, CsInput& in, CsOutput& out) {
  if (state.failure != CS_OK) return state.failure;
  if (out.begin == nullptr) return CS_E_NO_OUT_BUFFER;
  const std::size_t wanted = static_cast<std::size_t>(state.total - state.bytesIn);
  CsInput declared(in.Rest().first(std::min(in.Left(), wanted)));
  const CsResult result = lzc::Run(state, declared, out);
  in.at = declared.at;
  return result;
}

}  // namespace tolven

// The inner loop of the decompressor. It may run only while there is so much input and room that one round
// needs no check inside; everything near an edge is left to the careful path in lzh_decompress.cpp, which
// gives the same bytes.
//
// What a round may rely on, and what makes it true:
//
//   bits    after a refill there are at least 56 of them; the assertions below add up what is taken until the
//           next one
//   input   a refill loads 8 bytes where it stands; the loop's condition leaves room for the two refills of a
//           round, and kInMargin for the one in front of it
//   output  three literals, one match, and the bytes that a copy stores too many: kOutMargin
//   tables  every slot is written, so any bits at all find an entry; its kind is looked at before it is used
//   window  a distance is compared with what the stream has produced before it is followed
//
// The order of things inside a round is what makes it fast: the next symbol is looked up before the copy of a
// match and before a refill, neither of which it depends on, so that the processor works on both.

#include "cslib/lzh_decompress_fast.h"

#include <array>
#include <cstring>

namespace tolven::lzh {
namespace {

// A refill loads 8 bytes, uses up to 7 of them, and leaves at least this many bits in the buffer.
constexpr unsigned kRefilledBits = 56;
constexpr std::size_t kRefillLoad = 8, kRefillTake = 7;

constexpr unsigned kMaxLengthBits = kMaxCodeBits + 5;     // a length code and its extra bits
constexpr unsigned kMaxDistanceBits = kMaxCodeBits + 12;  // a distance code inside the window, likewise

// A round takes up to three literals, the last of which may come from a sub-table, or two of them and a
// match; the look-up of the next symbol follows before the refill, so that it need not wait for it.
//
//   three literals       11 + 11 + 15 (a sub-table), and 11 to look up the next            48
//   two and a length     11 + 11 + 15 + 5                                                  42
//   a distance           15 + 12, and 11 to look up the next                               38
//
// The first two begin behind a refill, and fit. The third one may find too little left by the second; so
// behind a length there is a refill if need be, which after short codes there is not.
constexpr unsigned kMaxLiterals = 3;
static_assert((kMaxLiterals - 1) * kLitLenRootBits + kMaxCodeBits + kLitLenRootBits <= kRefilledBits);
static_assert((kMaxLiterals - 1) * kLitLenRootBits + kMaxLengthBits <= kRefilledBits);
constexpr unsigned kBitsForDistance = kMaxDistanceBits + kLitLenRootBits;
static_assert(kBitsForDistance <= kRefilledBits);

// One refill before the loop, then at most two in a round. The loop's own condition asks for one less, since
// the refill before it is done.
constexpr std::size_t kInMargin = 2 * kRefillTake + kRefillLoad;

// Matches are copied in runs of five words: few are longer than one run, and words overlap less often than
// wider pieces with bytes just written. The last run may go on behind the match by all but one of its bytes.
constexpr std::size_t kWord = 8;
constexpr std::size_t kRun = 5 * kWord;
// Runs of zeros aside, matches are short: most take one pass of the loop, whose length is fixed and unrolled.
constexpr std::size_t kOutMargin = kMaxLiterals + kMaxMatch + kRun - 1;

[[gnu::always_inline]] inline void CopyWord(std::uint8_t* to, const std::uint8_t* from) {
  std::memcpy(to, from, kWord);
}

// Copies `length` bytes from `distance` bytes back inside one buffer, writing up to kRun - 1 bytes too many.
// The source may overlap what is being written: from 8 bytes on no word reads a byte that its own store
// brings, and the words are copied in order.
[[gnu::always_inline]] inline void CopyNear(std::uint8_t* out, std::uint32_t length, std::uint32_t distance) {
  const std::uint8_t* from = out - distance;
  const std::uint8_t* const end = out + length;
  if (distance >= kWord) [[likely]] {
    do {
      for (std::size_t at = 0; at < kRun; at += kWord) CopyWord(out + at, from + at);
      out += kRun;
      from += kRun;
    } while (out < end);
  } else if (distance == 1) {
    // Runs of one byte are by far the most frequent of the overlapping matches.
    std::array<std::uint8_t, kWord> same;
    same.fill(*from);
    do {
      for (std::size_t at = 0; at < kRun; at += kWord) CopyWord(out + at, same.data());
      out += kRun;
    } while (out < end);
  } else {
    // Each word brings `distance` good bytes: the ones behind them are still missing in the source and are
    // written again by the next word.
    do {
      CopyWord(out, from);
      out += distance;
      from += distance;
    } while (out < end);
  }
}

[[gnu::always_inline]] inline FastExit DecodeLoop(LzhDecompressState& state, BitCursor& cursor,
                                                  std::size_t room) {
  const Entry* const litLen = state.litLen.entries;
  const Entry* const dist = state.dist.entries;
  const std::uint64_t litLenMask = (std::uint64_t{1} << state.litLen.rootBits) - 1;
  const std::uint64_t distMask = (std::uint64_t{1} << state.dist.rootBits) - 1;
  const std::uint8_t* const inStop = cursor.in.end - (kRefillTake + kRefillLoad);
  std::uint8_t* const outBegin = cursor.out.begin;
  std::uint8_t* const outStop = cursor.out.at + (room - kOutMargin);

  const std::uint8_t* in = cursor.in.at;
  std::uint8_t* out = cursor.out.at;
  std::uint64_t bits = cursor.bits;
  // Whole entries are subtracted from the count, which spares cutting out their lowest byte each time: only
  // the lowest byte of the count means anything. It never borrows from the ones above it in a way that
  // matters: the bits of an entry are there when it is taken, by the sums above, so the byte itself does not
  // go below zero.
  unsigned bitCount = cursor.bitCount;
  const auto countedBits = [&]() __attribute__((always_inline)) {
    return bitCount & 0xFFU;
  };

  // The shifted word may reach beyond bit 63: what falls off there is loaded again next time, since `in` goes
  // on only by the whole bytes that fit.
  const auto refill = [&]() __attribute__((always_inline)) {
    bits |= LoadLittle64(in) << (bitCount & 63U);
    in += (63U - countedBits()) >> 3;
    bitCount |= kRefilledBits;
  };
  const auto drop = [&](Entry entry) __attribute__((always_inline)) {
    bits >>= entry & 63U;
    bitCount -= entry;
  };
  // Back from the locals: in front of every return, and where somebody else works on the cursor for a moment.
  const auto storeCursor = [&]() __attribute__((always_inline)) {
    cursor.in.at = in;
    cursor.out.at = out;
    cursor.bits = bits;
    cursor.bitCount = countedBits();
  };
  const auto behindLink = [&](const Entry* table, Entry link) __attribute__((always_inline)) {
    const std::uint64_t index = (bits >> DropBits(link)) & ((std::uint64_t{1} << CodeBits(link)) - 1);
    return table[Value(link) + index];
  };

  refill();
  Entry entry = litLen[bits & litLenMask];
  // The declared length is not looked at in here. `room` is the smaller of it and the caller's room, and
  // outStop leaves space for a whole round below that: what a round writes never reaches either end, so
  // neither a literal nor a match in here can be one too many.
  do {
    // At least kRefilledBits in the buffer; `entry` is looked up but not taken yet.
    if ((entry & kLiteral) != 0) {
      drop(entry);
      *out++ = LiteralByte(entry);
      entry = litLen[bits & litLenMask];
      if ((entry & kLiteral) != 0) {
        drop(entry);
        *out++ = LiteralByte(entry);
        entry = litLen[bits & litLenMask];
        if ((entry & kLiteral) != 0) {
          drop(entry);
          *out++ = LiteralByte(entry);
          entry = litLen[bits & litLenMask];
          refill();
          continue;
        }
      }
    }

    if ((entry & kSpecial) != 0) [[unlikely]] {
      if (Is(entry, kLink)) {
        const Entry link = entry;
        entry = behindLink(litLen, link);
        // Not dropped: the careful path comes here again and finds out what is wrong.
        if (Is(entry, kInvalid)) {
          storeCursor();
          return FastExit::kEdge;
        }
        drop(link);
        if ((entry & kLiteral) != 0) {
          drop(entry);
          *out++ = LiteralByte(entry);
          entry = litLen[bits & litLenMask];
          refill();
          continue;
        }
      }
      if (Is(entry, kEndOfBlock)) {
        drop(entry);
        storeCursor();
        return FastExit::kBlockDone;
      }
      if (Is(entry, kInvalid)) {
        storeCursor();
        return FastExit::kEdge;
      }
    }
    const std::uint32_t length = ValueWithExtra(entry, bits);
    drop(entry);

    if (countedBits() < kBitsForDistance) [[unlikely]] {
      refill();
    }
    entry = dist[bits & distMask];
    unsigned linkBits = 0;
    if ((entry & kSpecial) != 0) [[unlikely]] {
      if (Is(entry, kLink)) {
        linkBits = DropBits(entry);
        entry = behindLink(dist, entry);
      }
      // The length is taken already, so the careful path goes on with the distance.
      if (Is(entry, kInvalid)) {
        state.length = length;
        storeCursor();
        return FastExit::kDistance;
      }
    }
    const std::uint32_t distance = ValueWithExtra(entry, bits >> linkBits);
    const auto produced = static_cast<std::size_t>(out - outBegin);
    if (distance > produced) [[unlikely]] {
      if (distance > state.total + produced) {
        state.length = length;
        storeCursor();
        return FastExit::kDistance;
      }
      drop(linkBits + DropBits(entry));
      // It begins in what earlier calls delivered, which the caller may have taken away: from the window.
      storeCursor();
      CopyMatch(state, cursor, length, distance);
      out = cursor.out.at;
      refill();
      entry = litLen[bits & litLenMask];
      continue;
    }
    drop(linkBits + DropBits(entry));

    // The next symbol is looked up before the copy, so that the two overlap: its load is the longest wait in
    // a round, and the copy, which depends on nothing that comes later, fills it.
    entry = litLen[bits & litLenMask];
    refill();
    CopyNear(out, length, distance);
    out += length;
  } while (in <= inStop && out <= outStop);
  storeCursor();
  return FastExit::kEdge;
}

#if defined(__x86_64__)
// The same with shifts and masks by a variable count in one instruction each, none of which touches the flags
// or a fixed register.
[[gnu::target("bmi,bmi2")]] FastExit DecodeBmi2(LzhDecompressState& state, BitCursor& cursor,
                                                std::size_t room) {
  return DecodeLoop(state, cursor, room);
}

#endif

}  // namespace

bool WorthDecodingFast(const BitCursor& cursor, std::size_t room) {
  return cursor.in.Left() >= kInMargin && room >= kOutMargin;
}

FastExit DecodePortable(LzhDecompressState& state, BitCursor& cursor, std::size_t room) {
  return DecodeLoop(state, cursor, room);
}

FastDecoder FastestDecoder() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("bmi2") != 0) return DecodeBmi2;
#endif
  return DecodePortable;
}

}  // namespace tolven::lzh

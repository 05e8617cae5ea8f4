#pragma once

// The way of compressed bits out of the compressor: a block is packed by LzhBitWriter into a place that
// LzhOutput reserved, in one piece and without a check inside. The size of a block is known before it is
// sent, since its codes are; so the choice between the caller's buffer and the overflow buffer is made once a
// block and not once a byte.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "cslib/bytes.h"

namespace tolven::lzh {

// Bits to bytes, least significant first. The format's writer is a 16-bit buffer (`bi_buf`, `bi_valid`) that
// gives up two bytes as soon as a further bit would not fit, so between two writes it holds 1 to 16 bits.
// This one gathers up to 64 bits in a register and spills several pairs of bytes at once; after a spill it
// holds exactly what the 16-bit buffer would. That matters where a block ends: what is held then goes in
// front of the next block, and a caller who is told to bring more room has been given just as many bytes.
class LzhBitWriter {
 public:
  // How far a spill may write behind the bytes that count.
  static constexpr int kSlack = 8;
  static constexpr int kMaxHeld = 16;            // bits left behind by a spill
  static constexpr int kMaxPut = 64 - kMaxHeld;  // bits that may follow before the next spill

  // Continues from `bi_buf` and `bi_valid` of the last writer, into `to`.
  LzhBitWriter(std::uint8_t* to, std::uint64_t bi_buf, int bi_valid)
      : to_(to), bi_buf_(bi_buf), bi_valid_(bi_valid) {}

  // `value` must fit `count` bits.
  void Put(std::uint64_t value, int count) {
    bi_buf_ |= value << bi_valid_;
    bi_valid_ += count;
  }

  // (bi_valid_ - 1) / 16 and not bi_valid_ / 16: a pair that is just full stays, as it does in the 16-bit
  // buffer, which gives up its bytes only when a further bit comes. So with 1 to 64 bits held, 0 to 3 pairs
  // go.
  //
  // Needs at least one bit held: true from the preamble to the end of the stream. The whole register is
  // stored and the position moved on by the pairs that are full; no branch, whatever the number of bits.
  void Spill() {
    StoreLittle64(to_, bi_buf_);
    const int pairs = (bi_valid_ - 1) >> 4;  // at most 3, so the shift stays below 64
    to_ += 2 * pairs;
    bi_buf_ >>= 16 * pairs;
    bi_valid_ -= 16 * pairs;
  }

  void SendBits(std::uint32_t value, int count) {
    Put(value, count);
    Spill();
  }

  // Fills the last byte with zero bits and empties the register; the writer is only good for whole bytes
  // then.
  void Align() {
    for (; bi_valid_ > 0; bi_valid_ -= 8) {
      *to_++ = static_cast<std::uint8_t>(bi_buf_);
      bi_buf_ >>= 8;
    }
    bi_valid_ = 0;
  }

  void PutByte(std::uint8_t byte) { *to_++ = byte; }

  [[nodiscard]] std::uint8_t* Position() const { return to_; }
  [[nodiscard]] std::uint64_t BiBuf() const { return bi_buf_; }
  [[nodiscard]] int BiValid() const { return bi_valid_; }

 private:
  std::uint8_t* to_;
  std::uint64_t bi_buf_;
  int bi_valid_;
};

// Where compressed bytes go: the caller's buffer while it has room, else the overflow buffer, which the next
// call empties first. It belongs to the stream's state and is given the cursor of each call for its length.
class LzhOutput {
 public:
  // Room for the largest block: see the assertion where blocks are written.
  static constexpr std::size_t kOverflowSize = 128 * 1024;

  // A new stream: forgets what an abandoned one left pending.
  void Start() { pendingBegin_ = pendingEnd_ = 0; }

  // A call: its output goes where `out` stands. Detach says where that has got to, and forgets it.
  void Attach(const CsOutput& out) { out_ = out; }
  CsOutput Detach() { return std::exchange(out_, CsOutput()); }

  // Moves pending bytes to the caller. True iff none are left.
  bool Drain() {
    const std::size_t count = std::min(pendingEnd_ - pendingBegin_, out_.Room());
    if (count != 0) std::memcpy(out_.at, overflow_.data() + pendingBegin_, count);
    out_.at += count;
    pendingBegin_ += count;
    return !HasPending();
  }

  [[nodiscard]] bool HasPending() const { return pendingBegin_ != pendingEnd_; }

  // A place for at most `bytes` bytes (up to kOverflowSize). Nothing may be pending.
  std::uint8_t* Reserve(std::size_t bytes) {
    direct_ = out_.Room() >= bytes;
    return direct_ ? out_.at : overflow_.data();
  }

  // The bytes from the reserved place to `end` are output now; as many of them as fit are with the caller.
  void Commit(std::uint8_t* end) {
    if (direct_) {
      out_.at = end;
      return;
    }
    pendingBegin_ = 0;
    pendingEnd_ = static_cast<std::size_t>(end - overflow_.data());
    Drain();
  }

 private:
  CsOutput out_;
  std::size_t pendingBegin_ = 0;
  std::size_t pendingEnd_ = 0;
  bool direct_ = false;  // the reserved place is the caller's
  std::array<std::uint8_t, kOverflowSize> overflow_;
};

}  // namespace tolven::lzh

#pragma once

// Bits to bytes, least significant first. The format's writer is a 16-bit buffer (`bi_buf`, `bi_valid`) that
// gives up two bytes as soon as a further bit would not fit, so between two writes it holds 1 to 16 bits.
// This one gathers up to 64 bits in a register and spills several pairs of bytes at once; after a spill it
// holds exactly what the 16-bit buffer would, so a call that stops there has written the same number of
// bytes.

#include <bit>
#include <cstdint>
#include <cstring>

namespace tolven::lzh {

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

  // Needs at least one bit held: true from the preamble to the end of the stream.
  void Spill() {
    static_assert(std::endian::native == std::endian::little, "the register is stored as it lies");
    std::memcpy(to_, &bi_buf_, sizeof bi_buf_);
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

  std::uint8_t* position() const { return to_; }
  std::uint64_t bi_buf() const { return bi_buf_; }
  int bi_valid() const { return bi_valid_; }

 private:
  std::uint8_t* to_;
  std::uint64_t bi_buf_;
  int bi_valid_;
};

}  // namespace tolven::lzh

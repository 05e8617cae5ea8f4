#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "cslib/bytes.h"
#include "cslib/cslib.h"
#include "cslib/lzc_format.h"

namespace tolven::lzc {

// Codes to bytes. The format's own way is a buffer of one group that is written when it is full; here every
// code goes out as it comes, which gives the same bytes and needs no second copy.
//
// The register is stored with all of its 8 bytes each time, and the position moves on by those that are
// complete; the next store overwrites the others. So the room behind the writing position must be kSlack
// larger than what is to be written, and nothing in here ever branches on how many bytes there are.
//
// The class is small and has no pointers: the coder copies it into a local for its loop, so that the compiler
// may keep all of it in registers, and back when it leaves.
class CodePacker {
 public:
  static constexpr std::size_t kSlack = 8;

  void Start() {
    bits_ = 0;
    used_ = 0;
    width_ = kInitBits;
    inWidth_ = 0;
    closed_ = CS_HEAD_SIZE;
  }

  int Width() const { return width_; }

  // Behind a store fewer than 8 bits wait, and a code has 13 at most: 64 bits are never exceeded.
  std::uint8_t* Put(std::uint32_t code, std::uint8_t* to) {
    bits_ |= static_cast<std::uint64_t>(code) << used_;
    used_ += static_cast<unsigned>(width_);
    ++inWidth_;
    return Store(to);
  }

  // The group is filled up with zero bits, and codes have `width` bits from here on. Where the width
  // grows there is nothing to fill: each code but the first of a dictionary brings one entry, so 256 codes of
  // 9 bits come before that, then 512 of 10, and so on, all of them whole groups. CLEAR is what cuts groups
  // off.
  std::uint8_t* Switch(int width, std::uint8_t* to) {
    const auto old = static_cast<std::uint32_t>(width_);
    const std::uint32_t open = inWidth_ % kCodesPerGroup;
    if (open != 0) {
      // Up to 7 missing codes of 13 bits are more than the register takes beside what waits in it, so the
      // zeros are let out in parts of 48 bits.
      std::uint32_t missing = (kCodesPerGroup - open) * old;
      while (missing > 0) {
        const std::uint32_t part = std::min(missing, 48U);
        used_ += part;
        to = Store(to);
        missing -= part;
      }
    }
    closed_ += static_cast<std::int64_t>((inWidth_ + kCodesPerGroup - 1) / kCodesPerGroup) * old;
    inWidth_ = 0;
    width_ = width;
    return to;
  }

  // The last bits, filled up to a byte.
  std::uint8_t* Finish(std::uint8_t* to) {
    used_ = (used_ + 7) & ~7U;
    return Store(to);
  }

  // Bytes of whole groups and of the header: what the ratio check means by bytes out, since the group that is
  // being filled was not written yet when the format was made. Counted from codes, not from what went out, so
  // that it never depends on how the caller cut its buffers.
  std::int64_t BytesOut() const {
    return closed_ + static_cast<std::int64_t>(inWidth_ / kCodesPerGroup) * width_;
  }

 private:
  std::uint8_t* Store(std::uint8_t* to) {
    StoreLittle64(to, bits_);
    const unsigned bytes = used_ >> 3;
    bits_ >>= 8 * bytes;
    used_ &= 7;
    return to + bytes;
  }

  std::uint64_t bits_ = 0;
  unsigned used_ = 0;  // bits in bits_; below 8 between two calls
  int width_ = kInitBits;
  std::uint64_t inWidth_ = 0;  // codes since the width last changed
  std::int64_t closed_ = 0;    // bytes of the groups before that, and of the stream header
};

}  // namespace tolven::lzc

#pragma once

// The compressor's dictionary: pairs of a string's code and the byte behind it, and the codes they stand for.

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "cslib/lzc_format.h"

namespace tolven::lzc {

// The classic hash table, of which only the places count (see ClassicPlaces).
inline constexpr std::int32_t kHashSize = 9001;
inline constexpr int kHashShift = 5;
static_assert(((255 << kHashShift) | (kWriteMaxCodes - 1)) < kHashSize,
              "every first probe lies inside the table");
static_assert(kWriteMaxCodes - kFirstFree < kHashSize, "a probe sequence always meets an empty place");

constexpr std::uint32_t PairKey(std::uint32_t prefix, std::uint32_t byte) {
  return byte << kWriteMaxBits | prefix;
}
inline constexpr std::uint32_t kNoPair = std::numeric_limits<std::uint32_t>::max();
inline constexpr std::uint32_t kZeroPair = PairKey(0, 0);

// Which places of the classic table of 9001 keys are taken. The dictionary itself is kept elsewhere; this is
// here for one peculiarity of the classic table that shows in the code stream: while searching it holds a
// place with a key of 0, which is the pair of two zero bytes, for empty. A new pair that comes across that
// place takes it, and the pair of zeros is forgotten.
//
// On its own first place, 0, the pair of zeros is safe: 9001 is a prime and a probe goes in equal steps, so
// it comes to place 0 behind all others, and one of those is always empty. Only zeros that found place 0
// taken can be lost. Hardly any data gets there; the places are followed from then on and to the next CLEAR.
class ClassicPlaces {
 public:
  void Clear() {
    taken_.reset();
    zeroPlace_ = -1;
  }

  // Finds the place for a pair that is not in the table. True when the pair of zeros was driven out for it.
  bool Insert(std::uint32_t prefix, std::uint32_t byte) {
    auto place = static_cast<std::int32_t>(byte << kHashShift ^ prefix);
    bool lost = false;
    if (taken_[static_cast<std::size_t>(place)]) {
      const std::int32_t step = place == 0 ? 1 : kHashSize - place;
      do {
        place -= step;
        if (place < 0) place += kHashSize;
      } while (taken_[static_cast<std::size_t>(place)] && place != zeroPlace_);
      lost = place == zeroPlace_;
      if (lost) zeroPlace_ = -1;
    }
    taken_.set(static_cast<std::size_t>(place));
    if (PairKey(prefix, byte) == kZeroPair) zeroPlace_ = place;
    return lost;
  }

  bool ZerosCanBeLost() const { return zeroPlace_ > 0; }

 private:
  std::bitset<kHashSize> taken_;
  std::int32_t zeroPlace_ = -1;
};

// Pair -> code. The table holds codes alone, and the pair that a code stands for is compared beside the path
// that leads to the next look-up: the processor goes on with the guess that the first place was the right
// one. A load of an eighth keeps the runs short.
//
// The classic table would do as well, but a full dictionary fills nine tenths of it, and then every search
// for a pair that is not there walks far through memory. Here such a search ends at the first or second
// place.
//
// An empty place holds the code 0, whose pair is one that no string and byte can make. So a search has a
// single condition to leave its loop by a match or by an empty place, and both are found by the same two
// loads. It always ends: at most 7935 of the 65536 places are taken.
//
// The pairs of codes from next_ on are left over from before the last CLEAR. Nothing leads to them, since the
// codes in the table are cleared; that is a clear of 128 KiB, once in at least 8 KiB of output.
class Dictionary {
 public:
  static constexpr std::uint32_t kAbsent = 0;  // codes below 257 are never in the table

  void Clear() {
    codes_.fill(0);
    pairs_[kAbsent] = kNoPair;
    next_ = kFirstFree;
    followsPlaces_ = false;
  }

  // The code that the next pair will get.
  std::uint32_t Next() const { return next_; }
  bool Full() const { return next_ == kWriteMaxCodes; }

  // The code of the pair, or kAbsent with `place` where it belongs.
  std::uint32_t Find(std::uint32_t prefix, std::uint32_t byte, std::uint32_t* place) const {
    const std::uint32_t pair = PairKey(prefix, byte);
    std::uint32_t at = Scatter(byte) ^ prefix;
    std::uint32_t code = codes_[at];
    while (pairs_[code] != pair && code != kAbsent) {
      at = (at + 1) & (kPlaces - 1);
      code = codes_[at];
    }
    *place = at;
    return code;
  }

  // Not when full; `place` as Find left it.
  void Insert(std::uint32_t place, std::uint32_t prefix, std::uint32_t byte) {
    codes_[place] = static_cast<std::uint16_t>(next_);
    pairs_[next_] = PairKey(prefix, byte);
    ++next_;
    if (followsPlaces_) {
      if (places_.Insert(prefix, byte)) ForgetZeros();
    } else if (pairs_[next_ - 1] == kZeroPair) {
      FollowPlaces();
    }
  }

 private:
  static constexpr int kPlaceBits = 16;
  static constexpr std::uint32_t kPlaces = 1U << kPlaceBits;
  static_assert(kWriteMaxCodes < kPlaces);

  // Depends on the byte alone, so it is known long before the prefix is: the prefix is the result of the
  // look-up before, and all that is left to do with it is one XOR. The multiplier (2^32 by the golden ratio)
  // spreads the bytes evenly over the upper bits, so prefixes, which are small and dense, fill the places
  // between.
  static constexpr std::uint32_t Scatter(std::uint32_t byte) {
    return byte * 0x9E3779B1U >> (32 - kPlaceBits);
  }

  // Where pairs lie in the classic table matters only behind a pair of zeros, and hardly ever then.
  void FollowPlaces() {
    places_.Clear();
    for (std::uint32_t code = kFirstFree; code < next_; ++code) {
      places_.Insert(pairs_[code] & (kWriteMaxCodes - 1), pairs_[code] >> kWriteMaxBits);
    }
    followsPlaces_ = places_.ZerosCanBeLost();
  }

  // Its place in codes_ stays taken, so that longer runs stay whole. Its code is never found again and never
  // given to another pair, just as in the classic table; the decompressor holds a string for it that nobody
  // asks for.
  void ForgetZeros() {
    std::uint32_t place = 0;
    pairs_[Find(0, 0, &place)] = kNoPair;
  }

  std::array<std::uint16_t, kPlaces> codes_;
  std::array<std::uint32_t, kWriteMaxCodes> pairs_;
  std::uint32_t next_ = kFirstFree;
  bool followsPlaces_ = false;
  ClassicPlaces places_;
};

}  // namespace tolven::lzc

#pragma once

// A slow LZC compressor that follows the classic hash table of 9001 keys literally, one code and one bit at a
// time, and counts what sets its streams apart from compress(1). The real coder must write the same bytes.

#include <cstdint>
#include <vector>

#include "cslib/data.h"

namespace tolven::test {

class LzcClassic {
 public:
  // The code stream behind the header; `data` must not be empty.
  Bytes Compress(const Bytes& data) {
    std::int64_t prefix = data[0];
    bytesIn_ = 1;
    for (std::size_t n = 1; n < data.size(); ++n) {
      const std::int64_t byte = data[n];
      ++bytesIn_;
      const std::int64_t key = (byte << 13) + prefix;
      std::int64_t place = (byte << 5) ^ prefix;
      if (keys_[Index(place)] != key && keys_[Index(place)] != -1) {
        const std::int64_t step = place == 0 ? 1 : 9001 - place;
        do {
          place -= step;
          if (place < 0) place += 9001;
        } while (keys_[Index(place)] != key && keys_[Index(place)] > 0);
      }
      if (keys_[Index(place)] == key) {
        prefix = codes_[Index(place)];
        continue;
      }
      PutCode(prefix);
      prefix = byte;
      if (freeEnt_ < 8192) {
        if (keys_[Index(place)] == 0) ++zerosLost;
        codes_[Index(place)] = freeEnt_++;
        keys_[Index(place)] = key;
      } else if (bytesIn_ >= checkpoint_) {
        CheckRatio();
      }
    }
    PutCode(prefix);
    Flush((group_.size() + 7) / 8);
    return out_;
  }

  int checks = 0;
  int clears = 0;
  int zerosLost = 0;

 private:
  static std::size_t Index(std::int64_t place) { return static_cast<std::size_t>(place); }

  void CheckRatio() {
    ++checks;
    checkpoint_ = bytesIn_ + 4096;
    const std::int64_t bytesOut = 8 + static_cast<std::int64_t>(out_.size());
    std::int64_t ratio = (bytesIn_ << 8) / bytesOut;
    if (bytesIn_ > 0x7FFFFF) ratio = (bytesOut >> 8) == 0 ? 0x7FFFFFFF : bytesIn_ / (bytesOut >> 8);
    if (ratio > ratio_) {
      ratio_ = ratio;
      return;
    }
    ratio_ = 0;
    keys_.assign(9001, -1);
    freeEnt_ = 257;
    clear_ = true;
    ++clears;
    PutCode(256);
  }

  void PutCode(std::int64_t code) {
    for (unsigned bit = 0; bit < bits_; ++bit) group_.push_back((code >> bit & 1) != 0);
    if (group_.size() == 8 * bits_) Flush(bits_);
    if (freeEnt_ <= maxCode_ && !clear_) return;
    if (!group_.empty()) Flush(bits_);
    bits_ = clear_ ? 9 : bits_ + 1;
    clear_ = false;
    maxCode_ = bits_ == 13 ? 8192 : (1 << bits_) - 1;
  }

  // The first `count` bytes of the group, zero bits where there are no codes.
  void Flush(std::size_t count) {
    group_.resize(8 * count);
    for (std::size_t n = 0; n < count; ++n) {
      unsigned byte = 0;
      for (unsigned bit = 0; bit < 8; ++bit) byte |= group_[8 * n + bit] ? 1U << bit : 0U;
      out_.push_back(static_cast<std::uint8_t>(byte));
    }
    group_.clear();
  }

  std::vector<std::int64_t> keys_ = std::vector<std::int64_t>(9001, -1);
  std::vector<std::int64_t> codes_ = std::vector<std::int64_t>(9001);
  std::vector<bool> group_;
  Bytes out_;
  unsigned bits_ = 9;
  std::int64_t maxCode_ = 511;
  std::int64_t freeEnt_ = 257;
  std::int64_t bytesIn_ = 0;
  std::int64_t checkpoint_ = 4096;
  std::int64_t ratio_ = 0;
  bool clear_ = false;
};

}  // namespace tolven::test

#pragma once

// Where compressed bytes go: the caller's buffer while it has room, else the overflow buffer, which the next
// call empties first. A block is written in one piece to one of the two places, so the writer needs no bounds
// checks.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tolven::lzh {

class LzhOutput {
 public:
  // Room for the largest block: see the assertion where blocks are written.
  static constexpr std::size_t kOverflowSize = 128 * 1024;

  // A new stream: forgets what an abandoned one left pending.
  void Start() { pending_begin_ = pending_end_ = 0; }

  // A new call: `room` is borrowed until the call returns, the first `used` bytes of it are taken already.
  void Attach(std::span<std::uint8_t> room, std::size_t used) {
    room_ = room;
    written_ = used;
  }

  // Moves pending bytes to the caller. True iff none are left.
  bool Drain() {
    const std::size_t count = std::min(pending_end_ - pending_begin_, room_.size() - written_);
    if (count != 0) std::memcpy(room_.data() + written_, overflow_.data() + pending_begin_, count);
    written_ += count;
    pending_begin_ += count;
    return !HasPending();
  }

  bool HasPending() const { return pending_begin_ != pending_end_; }
  std::size_t written() const { return written_; }

  // A place for at most `bytes` bytes (up to kOverflowSize). Nothing may be pending.
  std::uint8_t* Reserve(std::size_t bytes) {
    direct_ = room_.size() - written_ >= bytes;
    return direct_ ? room_.data() + written_ : overflow_.data();
  }

  // The bytes from the reserved place to `end` are output now.
  void Commit(const std::uint8_t* end) {
    if (direct_) {
      written_ = static_cast<std::size_t>(end - room_.data());
      return;
    }
    pending_begin_ = 0;
    pending_end_ = static_cast<std::size_t>(end - overflow_.data());
    Drain();
  }

 private:
  std::span<std::uint8_t> room_;
  std::size_t written_ = 0;
  std::size_t pending_begin_ = 0;
  std::size_t pending_end_ = 0;
  bool direct_ = false;
  std::array<std::uint8_t, kOverflowSize> overflow_;
};

}  // namespace tolven::lzh

#pragma once

// Drives whole streams through a handle as a caller would: pieces of input, pieces of room, buffers that end
// at a page nobody may touch, and a check of every call against what it claims.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "cslib/context.h"
#include "cslib/cslib.h"
#include "cslib/data.h"
#include "cslib/handle_table.h"
#include "cslib/lzh_decompress_fast.h"

namespace tolven::test {

// Memory whose last byte is followed by a page that cannot be touched: reading or writing one byte too far
// ends the test program, with any compiler, at any alignment, which ASan's check of a wide access does not
// promise.
class GuardedBuffer {
 public:
  GuardedBuffer() = default;
  ~GuardedBuffer() { Free(); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  // `size` bytes right in front of the guard; what was there before is gone.
  std::uint8_t* Take(std::size_t size) {
    if (size > capacity_ || base_ == nullptr) Grow(size);
    return base_ + (capacity_ - size);
  }

 private:
  void Grow(std::size_t size) {
    Free();
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    capacity_ = (size / page + 1) * page;
    void* const memory =
        mmap(nullptr, capacity_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    base_ = static_cast<std::uint8_t*>(memory);
    guard_ = page;
    if (mprotect(base_ + capacity_, page, PROT_NONE) != 0) std::abort();
  }
  void Free() {
    if (base_ != nullptr) munmap(base_, capacity_ + guard_);
    base_ = nullptr;
  }

  std::uint8_t* base_ = nullptr;
  std::size_t capacity_ = 0, guard_ = 0;
};

inline constexpr int kLzh = CS_ALGORITHM_LZH | 2 << CS_LEVEL_SHIFT;
inline constexpr int kLzc = CS_ALGORITHM_LZC;
inline constexpr int kFramedLzh = kLzh | CS_CHECKSUM, kFramedLzc = kLzc | CS_CHECKSUM;
inline constexpr int kAllOptions[] = {kLzh, kLzc, kFramedLzh, kFramedLzc};

// With the fast loop of this machine, or with the one for any machine.
enum class FastLoop { kFastest, kPortable };
inline constexpr FastLoop kFastLoops[] = {FastLoop::kFastest, FastLoop::kPortable};

struct Outcome {
  int rc = 0;
  Bytes out;
  std::size_t taken = 0;
};

// A handle of one's own, and the streams that go through it.
class Driver {
 public:
  explicit Driver(FastLoop loop = FastLoop::kFastest) : loop_(loop) { EXPECT_EQ(CsRGetHandle(&handle_), 0); }
  ~Driver() { EXPECT_EQ(CsRCloseHandle(handle_), 0); }
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  [[nodiscard]] int Handle() const { return handle_; }
  std::int32_t read = 0, written = 0;
  Bytes out;  // of all calls since Restart

  void Restart() {
    started_ = false;
    out.clear();
  }

  // One call, the first one behind Restart a start call, with buffers of just these sizes.
  int Compress(std::size_t total, std::span<const std::uint8_t> in, std::size_t room, int options) {
    return Call(in, room, [&](const std::uint8_t* from, std::uint8_t* to, int init) {
      return CsRCompress(handle_, static_cast<std::int32_t>(total), from,
                         static_cast<std::int32_t>(in.size()), to, static_cast<std::int32_t>(room),
                         init != 0 ? options | init : options & ~CS_INIT, &read, &written);
    });
  }
  int Decompress(std::span<const std::uint8_t> in, std::size_t room) {
    const int rc = Call(in, room, [&](const std::uint8_t* from, std::uint8_t* to, int init) {
      if (init != 0) UseLoop();
      return CsRDecompress(handle_, from, static_cast<std::int32_t>(in.size()), to,
                           static_cast<std::int32_t>(room), init, &read, &written);
    });
    if (rc == CS_END_OF_STREAM) return rc;
    EXPECT_TRUE(rc != CS_END_INBUFFER || static_cast<std::size_t>(read) == in.size()) << "input is left";
    return rc;
  }

  // Whole streams in pieces. The first call sees room, or input, for the stream header more than the others.
  Outcome Compress(const Bytes& data, int options, std::size_t piece, std::size_t room) {
    return Pieces(data, piece, 0, [&](std::span<const std::uint8_t> in, bool first) {
      return Compress(data.size(), in, room + (first ? CS_HEAD_SIZE : 0), options);
    });
  }
  Outcome Compress(const Bytes& data, int options) {
    return Compress(data, options, data.size(), 200000 + 2 * data.size());
  }
  Outcome Decompress(const Bytes& stream, std::size_t piece, std::size_t room) {
    return Pieces(stream, piece, CS_HEAD_SIZE,
                  [&](std::span<const std::uint8_t> in, bool) { return Decompress(in, room); });
  }

 private:
  template <typename Function>
  int Call(std::span<const std::uint8_t> in, std::size_t room, Function function) {
    std::uint8_t* const from = input_.Take(in.size());
    std::copy(in.begin(), in.end(), from);
    std::uint8_t* const to = output_.Take(room);
    read = written = -1;
    const int rc = function(from, to, started_ ? 0 : CS_INIT);
    started_ = true;
    EXPECT_TRUE(read >= 0 && static_cast<std::size_t>(read) <= in.size()) << read << " of " << in.size();
    EXPECT_TRUE(written >= 0 && static_cast<std::size_t>(written) <= room) << written << " of " << room;
    EXPECT_TRUE(rc != CS_END_OUTBUFFER || static_cast<std::size_t>(written) == room) << "room is left";
    if (written > 0) out.insert(out.end(), to, to + written);
    return rc;
  }

  // Calls until the result is neither 2 nor 3, or input is wanted where there is none.
  template <typename Function>
  Outcome Pieces(const Bytes& input, std::size_t piece, std::size_t lead, Function function) {
    Restart();
    std::size_t taken = 0, given = std::min(input.size(), piece + lead);
    int rc;
    do {
      rc = function(std::span(input).subspan(taken, given - taken), !started_);
      taken += static_cast<std::size_t>(read);
      if (rc != CS_END_INBUFFER) continue;
      EXPECT_EQ(taken, given) << "asks for input with some left";
      if (given == input.size()) break;
      given = std::min(input.size(), given + piece);
    } while (rc == CS_END_OUTBUFFER || rc == CS_END_INBUFFER);
    return {rc, std::move(out), taken};
  }

  // The state exists from the first start call on.
  void UseLoop() {
    if (loop_ == FastLoop::kFastest) return;
    CsContext& context = *FindContext(handle_);
    if (!context.lzhDecompress) context.lzhDecompress = std::make_unique<LzhDecompressState>();
    context.lzhDecompress->decodeFast = lzh::DecodePortable;
  }

  int handle_ = 0;
  FastLoop loop_;
  bool started_ = false;
  GuardedBuffer input_, output_;
};

}  // namespace tolven::test

#pragma once

// Drives the decompressor as a caller would, in pieces, with input and output buffers that are exactly as
// long as they claim to be, so that one byte too far shows under ASan.

#include <gtest/gtest.h>

#include "cslib/cslib.h"
#include "cslib/guarded_buffer.h"
#include "cslib/lzh_decompress.h"
#include "cslib/lzh_decompress_fast.h"
#include "cslib/lzh_test_streams.h"

namespace tolven::lzhtest {

struct Outcome {
  int rc;
  Bytes out;
};

// With the fast loop of this machine, or with the one for any machine.
enum class FastLoop { kFastest, kPortable };
inline constexpr FastLoop kFastLoops[] = {FastLoop::kFastest, FastLoop::kPortable};

class Driver {
 public:
  explicit Driver(FastLoop loop = FastLoop::kFastest) {
    if (loop == FastLoop::kPortable) state_->decodeFast = lzh::DecodePortable;
  }

  // One call with the next `inLen` bytes, which should end where their buffer ends.
  int Call(const std::uint8_t* in, std::size_t inLen, std::size_t room) {
    std::uint8_t* const output = output_.Take(room);
    const int rc = CsRDecomprLZH(*state_, in, static_cast<std::int32_t>(inLen), output,
                                 static_cast<std::int32_t>(room), started_ ? 0 : CS_INIT, &read, &written);
    started_ = true;
    EXPECT_GE(read, 0);
    EXPECT_LE(static_cast<std::size_t>(read), inLen);
    EXPECT_GE(written, 0);
    EXPECT_LE(static_cast<std::size_t>(written), room);
    out.insert(out.end(), output, output + written);
    // A call that asks for more has used up what it asks for, and the end takes all of the input.
    const bool inputUsed = static_cast<std::size_t>(read) == inLen;
    const bool roomUsed = static_cast<std::size_t>(written) == room;
    EXPECT_TRUE(inputUsed || (rc != CS_END_INBUFFER && rc != CS_END_OF_STREAM));
    EXPECT_TRUE(roomUsed || rc != CS_END_OUTBUFFER);
    return rc;
  }

  // A whole stream: pieces of `piece` bytes (the first one 8 bytes longer), `room` bytes of output a call. 3
  // means that the stream ended too early.
  Outcome Decode(const Bytes& stream, std::size_t piece, std::size_t room) {
    Restart();
    for (std::size_t end = 0;;) {
      const std::size_t begin = end;
      end = std::min(stream.size(), begin + piece + (begin == 0 ? CS_HEAD_SIZE : 0));
      const std::size_t size = end - begin;
      const std::uint8_t* const input = input_.Fill(stream.data() + begin, size);
      std::size_t at = 0;
      int rc;
      do {
        rc = Call(input + at, size - at, room);
        at += static_cast<std::size_t>(read);
      } while (rc == CS_END_OUTBUFFER);
      if (rc != CS_END_INBUFFER || end == stream.size()) return {rc, out};
    }
  }

  void Restart() {
    started_ = false;
    out.clear();
  }

  Bytes out;
  std::int32_t read = 0, written = 0;

 private:
  LzhDecompressStatePtr state_ = NewLzhDecompressState();
  GuardedBuffer input_, output_;
  bool started_ = false;
};

}  // namespace tolven::lzhtest

#pragma once

// Drives a whole stream through a handle as a caller would: pieces of input, pieces of room, buffers exactly
// as long as they claim to be.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "cslib/cslib.h"
#include "cslib/sample_data.h"

namespace tolven::test {

// A handle for the length of a test.
class TestHandle {
 public:
  TestHandle() { EXPECT_EQ(CsRGetHandle(&number_), 0); }
  ~TestHandle() { CsRCloseHandle(number_); }
  TestHandle(const TestHandle&) = delete;
  TestHandle& operator=(const TestHandle&) = delete;
  operator int() const { return number_; }

 private:
  int number_ = 0;
};

// What one call gave.
struct Step {
  int result = 0;
  std::int32_t read = -1;
  std::int32_t written = -1;
};

struct Outcome {
  int result = 0;
  Bytes out;
  std::size_t taken = 0;
};

// Calls `call(in, inLen, out, outLen, first)` until it gives neither 2 nor 3, or wants input where there is
// none. The first call sees `lead` bytes of input and `leadRoom` of output more than the others.
template <typename Call>
Outcome RunPieces(const Bytes& input, std::size_t piece, std::size_t room, std::size_t lead,
                  std::size_t leadRoom, Call call) {
  Outcome outcome;
  std::size_t begin = 0;
  std::size_t given = std::min(input.size(), piece + lead);
  Bytes in;
  std::size_t outLen = 0;
  std::unique_ptr<std::uint8_t[]> out;
  for (bool first = true;; first = false) {
    if (begin + in.size() != given) {
      begin = outcome.taken;
      in = Bytes(input.begin() + static_cast<std::ptrdiff_t>(begin),
                 input.begin() + static_cast<std::ptrdiff_t>(given));
    }
    if (const std::size_t size = room + (first ? leadRoom : 0); !out || size != outLen) {
      out = std::make_unique<std::uint8_t[]>(outLen = size);
    }
    const std::size_t inLen = given - outcome.taken;
    const Step step = call(in.data() + (outcome.taken - begin), static_cast<std::int32_t>(inLen), out.get(),
                           static_cast<std::int32_t>(outLen), first);
    outcome.result = step.result;
    if (step.result < 0) return outcome;
    if (step.read < 0 || step.written < 0 || static_cast<std::size_t>(step.read) > inLen ||
        static_cast<std::size_t>(step.written) > outLen) {
      ADD_FAILURE() << "read " << step.read << " of " << inLen << ", wrote " << step.written << " of "
                    << outLen;
      return outcome;
    }
    outcome.taken += static_cast<std::size_t>(step.read);
    outcome.out.insert(outcome.out.end(), out.get(), out.get() + step.written);
    if (step.result == CS_END_INBUFFER) {
      EXPECT_EQ(outcome.taken, given) << "asks for input with some left";
      if (given == input.size()) return outcome;
      given = std::min(input.size(), given + piece);
    } else if (step.result == CS_END_OUTBUFFER) {
      EXPECT_EQ(static_cast<std::size_t>(step.written), outLen) << "asks for room with some left";
    } else {
      return outcome;
    }
  }
}

inline Outcome CompressPieces(int handle, const Bytes& data, int options, std::size_t piece,
                              std::size_t room) {
  const auto total = static_cast<std::int32_t>(data.size());
  return RunPieces(
      data, piece, room, 0, CS_HEAD_SIZE,
      [&](const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen, bool first) {
        Step step;
        step.result = CsRCompress(handle, total, in, inLen, out, outLen, first ? options | CS_INIT : options,
                                  &step.read, &step.written);
        return step;
      });
}

inline Outcome DecompressPieces(int handle, const Bytes& stream, std::size_t piece, std::size_t room) {
  return RunPieces(
      stream, piece, room, CS_HEAD_SIZE, 0,
      [&](const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen, bool first) {
        Step step;
        step.result =
            CsRDecompress(handle, in, inLen, out, outLen, first ? CS_INIT : 0, &step.read, &step.written);
        return step;
      });
}

}  // namespace tolven::test

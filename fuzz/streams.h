#pragma once

// Decoding a stream in pieces.

#include <memory>

#include "cslib/cslib.h"
#include "fuzz/support.h"

namespace tolven::fuzz {

using Data = std::vector<std::uint8_t>;

constexpr std::size_t kMostOutput = 1 << 20;  // a few bytes can declare and mean gigabytes
constexpr std::size_t kAllRoom = 65536;

struct Outcome {
  int rc = CS_END_INBUFFER;
  Data out;
  bool operator==(const Outcome&) const = default;
  bool IsCut() const { return out.size() >= kMostOutput; }
};

// Gives `call`, one of the engine's functions, `piece` bytes and `room` for output at a time. The buffers end
// where they say they do, so that a byte too far is caught.
template <typename Call>
Outcome DecodeInPieces(Bytes stream, std::size_t piece, std::size_t room, Call call) {
  Outcome outcome;
  const auto output = std::make_unique<std::uint8_t[]>(room);
  for (int options = CS_INIT; outcome.rc == CS_END_INBUFFER && !stream.empty();) {
    const std::size_t given = std::min(stream.size(), piece + (options != 0 ? CS_HEAD_SIZE : 0));
    const Data input(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(given));
    stream = stream.subspan(given);
    std::size_t at = 0;
    do {
      std::int32_t read = 0, written = 0;
      outcome.rc = call(input.data() + at, static_cast<std::int32_t>(given - at), output.get(),
                        static_cast<std::int32_t>(room), options, &read, &written);
      options = 0;
      at += static_cast<std::size_t>(read);
      outcome.out.insert(outcome.out.end(), output.get(), output.get() + written);
      if (outcome.IsCut()) return outcome;
    } while (outcome.rc == CS_END_OUTBUFFER);
    Require(outcome.rc != CS_END_INBUFFER || at == given);
  }
  return outcome;
}

}  // namespace tolven::fuzz

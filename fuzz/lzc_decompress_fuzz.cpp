// LZC streams: decoded whole and in pieces, which must agree, with buffers exactly as long as they claim to
// be. Input: 1 byte that sets the pieces, then the stream. Seeds: streams of the LZC compressor, a zero byte
// in front.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "cslib/cslib.h"
#include "cslib/lzc.h"

namespace {

using tolven::CS_HEAD_SIZE;

constexpr std::size_t kMostOutput = 1 << 20;  // a few bytes can declare and mean gigabytes

struct Outcome {
  int result = 0;
  std::vector<std::uint8_t> out;
};

Outcome Decode(tolven::LzcDecompressState& state, std::span<const std::uint8_t> stream, std::size_t piece,
               std::size_t room) {
  Outcome outcome;
  std::size_t at = 0;
  std::size_t given = std::min(stream.size(), std::max<std::size_t>(piece, CS_HEAD_SIZE));
  for (bool first = true;; first = false) {
    const std::vector<std::uint8_t> in(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                       stream.begin() + static_cast<std::ptrdiff_t>(given));
    const auto out = std::make_unique<std::uint8_t[]>(room);
    std::int32_t read = 0, written = 0;
    outcome.result =
        tolven::CsRDecomprLZC(state, in.data(), static_cast<std::int32_t>(in.size()), out.get(),
                              static_cast<std::int32_t>(room), first ? tolven::CS_INIT : 0, &read, &written);
    at += static_cast<std::size_t>(read);
    outcome.out.insert(outcome.out.end(), out.get(), out.get() + written);
    if (outcome.out.size() >= kMostOutput) return outcome;
    if (outcome.result == tolven::CS_END_OUTBUFFER) continue;
    if (outcome.result != tolven::CS_END_INBUFFER || given == stream.size()) return outcome;
    given = std::min(stream.size(), given + piece);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const tolven::LzcDecompressStatePtr state = tolven::NewLzcDecompressState();
  if (size < 1) return 0;
  const std::span<const std::uint8_t> stream(data + 1, size - 1);
  const Outcome whole = Decode(*state, stream, std::max<std::size_t>(stream.size(), 1), 65536);
  const Outcome pieces = Decode(*state, stream, 1 + data[0] % 16U, 1 + data[0] / 16U * 37U);
  const std::size_t both = std::min(whole.out.size(), pieces.out.size());
  if (!std::equal(whole.out.begin(), whole.out.begin() + static_cast<std::ptrdiff_t>(both),
                  pieces.out.begin())) {
    std::abort();
  }
  if (both < kMostOutput && whole.result != pieces.result) std::abort();
  return 0;
}

// LZC streams, decoded whole, in pieces, and by a plain decoder. Input: 1 byte that sets the pieces, then the
// stream.
#include <memory>

#include "cslib/cslib.h"
#include "cslib/lzc.h"
#include "fuzz/support.h"

namespace {

using namespace tolven;
using namespace tolven::fuzz;

constexpr std::size_t kMostOutput = 1 << 20;  // a few bytes can declare and mean gigabytes

struct Outcome {
  int result = 0;
  std::vector<std::uint8_t> out;
};

Outcome Decode(LzcDecompressState& state, Bytes stream, std::size_t piece, std::size_t room) {
  Outcome outcome;
  std::size_t at = 0;
  std::size_t given = std::min(stream.size(), std::max<std::size_t>(piece, CS_HEAD_SIZE));
  for (bool first = true;; first = false) {
    // Buffers exactly as long as they claim to be.
    const std::vector<std::uint8_t> in(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                       stream.begin() + static_cast<std::ptrdiff_t>(given));
    const auto out = std::make_unique<std::uint8_t[]>(room);
    std::int32_t read = 0, written = 0;
    outcome.result = CsRDecomprLZC(state, in.data(), static_cast<std::int32_t>(in.size()), out.get(),
                                   static_cast<std::int32_t>(room), first ? CS_INIT : 0, &read, &written);
    at += static_cast<std::size_t>(read);
    outcome.out.insert(outcome.out.end(), out.get(), out.get() + written);
    if (outcome.out.size() >= kMostOutput) return outcome;
    if (outcome.result == CS_END_OUTBUFFER) continue;
    if (outcome.result != CS_END_INBUFFER || given == stream.size()) return outcome;
    given = std::min(stream.size(), given + piece);
  }
}

// Bit by bit and byte by byte, as the format reads on paper.
Outcome DecodePlainly(Bytes stream) {
  const std::size_t total = stream[0] | stream[1] * 0x100UL | stream[2] * 0x10000UL | stream[3] * 0x1000000UL;
  const unsigned maxBits = stream[7] & 31U;
  const bool blockMode = (stream[7] & 0x80) != 0;
  std::vector<unsigned> prefix(1U << maxBits);
  std::vector<std::uint8_t> last(1U << maxBits);
  for (unsigned byte = 0; byte < 256; ++byte) last[byte] = static_cast<std::uint8_t>(byte);
  Outcome outcome;
  std::size_t group = 8 * CS_HEAD_SIZE, at = group;  // in bits
  unsigned width = 9, free = blockMode ? 257 : 256, old = 0;
  bool haveOld = false;
  const auto setWidth = [&](unsigned bits) {
    // The group of eight codes that has begun is passed over.
    while (at > group) group += 8UL * width;
    at = group;
    width = bits;
  };
  while (outcome.out.size() < total) {
    if (width < maxBits && free > (1U << width) - 1) setWidth(width + 1);
    if (at + width > 8 * stream.size()) return {CS_END_INBUFFER, std::move(outcome.out)};
    unsigned code = 0;
    for (unsigned bit = 0; bit < width; ++bit, ++at) code |= (stream[at / 8] >> at % 8 & 1U) << bit;
    if (haveOld && blockMode && code == 256) {
      free = 257;
      haveOld = false;
      setWidth(9);
      continue;
    }
    if (code > (haveOld ? free : 255)) return {CS_E_BAD_CODE, std::move(outcome.out)};
    std::vector<std::uint8_t> string;
    for (unsigned step = haveOld && code == free ? old : code;; step = prefix[step]) {
      string.push_back(last[step]);
      if (step < 256) break;
    }
    std::reverse(string.begin(), string.end());
    if (haveOld && code == free) string.push_back(string[0]);
    if (haveOld && free < 1U << maxBits) {
      prefix[free] = old;
      last[free++] = string[0];
    }
    string.resize(std::min(string.size(), total - outcome.out.size()));
    outcome.out.insert(outcome.out.end(), string.begin(), string.end());
    old = code;
    haveOld = true;
    if (outcome.out.size() >= kMostOutput) return outcome;
  }
  return {CS_END_OF_STREAM, std::move(outcome.out)};
}

void Compare(const Outcome& one, const Outcome& other) {
  const std::size_t both = std::min(one.out.size(), other.out.size());
  const auto end = one.out.begin() + static_cast<std::ptrdiff_t>(both);
  Require(std::equal(one.out.begin(), end, other.out.begin()));
  Require(both >= kMostOutput || one.result == other.result);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const LzcDecompressStatePtr state = NewLzcDecompressState();
  Input input(data, size);
  const unsigned choice = input.Byte();
  const Bytes stream = input.Rest();
  const Outcome whole = Decode(*state, stream, std::max<std::size_t>(stream.size(), 1), 65536);
  Compare(whole, Decode(*state, stream, 1 + choice % 16, 1 + choice / 16 * 37));
  // Without a good header there is nothing to compare.
  const bool started = whole.result >= 0 || whole.result == CS_E_BAD_CODE;
  if (started) Compare(whole, DecodePlainly(stream));
  return 0;
}

// LZC streams, decoded whole, in pieces, and by a plain decoder. Input: 1 byte that sets the pieces, then the
// stream.
#include "fuzz/streams.h"

namespace {

using namespace tolven;
using namespace tolven::fuzz;

Outcome Decode(Bytes stream, std::size_t piece, std::size_t room) {
  static const int handle = CsSearchNewHandle();
  Data lzc(stream.begin(), stream.end());
  if (lzc.size() > 4) lzc[4] = 0x10 | CS_ALG_CODE_LZC;  // whatever the input says
  return DecodeInPieces(lzc, piece, room,
                        [](auto... arguments) { return CsRDecompress(handle, arguments...); });
}

// Bit by bit and byte by byte, as the format reads on paper.
Outcome DecodePlainly(Bytes stream) {
  const std::size_t total = stream[0] | stream[1] * 0x100UL | stream[2] * 0x10000UL | stream[3] * 0x1000000UL;
  const unsigned maxBits = stream[7] & 31U;
  const bool blockMode = (stream[7] & 0x80) != 0;
  std::vector<unsigned> prefix(1U << maxBits);
  Data last(1U << maxBits);
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
    Data string;
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
    if (outcome.IsCut()) return outcome;
  }
  return {CS_END_OF_STREAM, std::move(outcome.out)};
}

void Compare(const Outcome& one, const Outcome& other) {
  const auto both = static_cast<std::ptrdiff_t>(std::min(one.out.size(), other.out.size()));
  Require(std::equal(one.out.begin(), one.out.begin() + both, other.out.begin()));
  Require(one == other || (one.IsCut() && other.IsCut()));
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  const unsigned choice = input.Byte();
  const Bytes stream = input.Rest();
  const Outcome whole = Decode(stream, stream.size(), kAllRoom);
  Compare(whole, Decode(stream, 1 + choice % 16, 1 + choice / 16 * 37));
  // Without a good header there is nothing to compare.
  const bool started = whole.rc >= 0 || whole.rc == CS_E_BAD_CODE;
  if (started && !stream.empty()) Compare(whole, DecodePlainly(stream));
}

// Any bytes behind a good stream header. The first two choose how the stream is cut into pieces; decoded
// whole and decoded in pieces must come to the same end.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "cslib/cslib.h"
#include "cslib/lzh_decompress.h"

namespace {

constexpr std::size_t kMaxOutput = 1 << 17;

struct Outcome {
  int rc;
  std::vector<std::uint8_t> out;
  bool operator==(const Outcome&) const = default;
};

// Input and output buffers end where they say they do, so that a byte too far is caught.
Outcome Decode(std::span<const std::uint8_t> stream, std::size_t piece, std::size_t room) {
  const auto state = tolven::NewLzhDecompressState();
  const auto output = std::make_unique<std::uint8_t[]>(room);
  Outcome outcome{tolven::CS_END_INBUFFER, {}};
  for (int options = tolven::CS_INIT; outcome.rc == tolven::CS_END_INBUFFER && !stream.empty();) {
    const std::size_t given = std::min(stream.size(), piece + (options != 0 ? tolven::CS_HEAD_SIZE : 0));
    const std::vector<std::uint8_t> input(stream.begin(),
                                          stream.begin() + static_cast<std::ptrdiff_t>(given));
    stream = stream.subspan(given);
    std::size_t at = 0;
    do {
      std::int32_t read = 0, written = 0;
      outcome.rc =
          tolven::CsRDecomprLZH(*state, input.data() + at, static_cast<std::int32_t>(input.size() - at),
                                output.get(), static_cast<std::int32_t>(room), options, &read, &written);
      options = 0;
      at += static_cast<std::size_t>(read);
      outcome.out.insert(outcome.out.end(), output.get(), output.get() + written);
    } while (outcome.rc == tolven::CS_END_OUTBUFFER);
  }
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 5) return 0;
  const std::size_t piece = 1 + data[0], room = 1 + data[1];
  std::vector<std::uint8_t> stream = {data[2], data[3], static_cast<std::uint8_t>(data[4] & 1), 0, 0x12, 0x1F,
                                      0x9D,    2};
  stream.insert(stream.end(), data + 5, data + size);
  if (Decode(stream, stream.size(), kMaxOutput) != Decode(stream, piece, room)) std::abort();
  return 0;
}

// LZH streams, decoded whole, in pieces, and by zlib. Input: piece size, room, three bytes of the declared
// length, then the stream behind its header.
#include <zlib.h>

#include "fuzz/streams.h"

namespace {

using namespace tolven;
using namespace tolven::fuzz;

Outcome Decode(Bytes stream, std::size_t piece, std::size_t room) {
  static const int handle = CsSearchNewHandle();
  return DecodeInPieces(stream, piece, room,
                        [](auto... arguments) { return CsRDecompress(handle, arguments...); });
}

// What zlib makes of the bits behind the preamble. With room for one byte a call it sees no further back than
// the window.
struct Inflated {
  int rc;
  std::string message;
  Data out;
};
Inflated Inflate(Bytes body, int windowBits, std::size_t length, bool byteByByte) {
  z_stream zlib{};
  Require(inflateInit2(&zlib, -windowBits) == Z_OK);
  const int skipped = 2 + (body[0] & 3);
  inflatePrime(&zlib, 8 - skipped, body[0] >> skipped);
  Inflated result{Z_OK, {}, Data(length + 1)};
  zlib.next_in = const_cast<std::uint8_t*>(body.data() + 1);
  zlib.avail_in = static_cast<uInt>(body.size() - 1);
  zlib.next_out = result.out.data();
  while (result.rc == Z_OK && zlib.total_out <= length) {
    zlib.avail_out = byteByByte ? 1 : static_cast<uInt>(result.out.size() - zlib.total_out);
    result.rc = inflate(&zlib, Z_NO_FLUSH);
  }
  if (zlib.msg != nullptr) result.message = zlib.msg;
  result.out.resize(zlib.total_out);
  inflateEnd(&zlib);
  return result;
}

// The format has no stored blocks, no empty set of codes and a window of 16 KiB; where a set of codes is not
// complete, it is read as far as it goes. In all else it is RFC 1951.
void Compare(const Outcome& ours, Bytes body, std::size_t length) {
  const Inflated zlib = Inflate(body, 15, length, false);
  const auto common = static_cast<std::ptrdiff_t>(std::min(ours.out.size(), zlib.out.size()));
  Require(std::equal(ours.out.begin(), ours.out.begin() + common, zlib.out.begin()));
  if (ours.rc == CS_END_OF_STREAM || ours.rc == CS_OK) {
    const bool refusedSet = zlib.message.ends_with(" set") || zlib.message.ends_with("missing end-of-block");
    Require(refusedSet || zlib.out == ours.out);
    Require((ours.rc == CS_END_OF_STREAM) == (ours.out.size() == length));
  } else if (zlib.rc == Z_STREAM_END && zlib.out.size() <= length) {
    Require(ours.rc == CS_E_UNKNOWN_TYPE || ours.rc == CS_E_TREE || ours.rc == CS_E_BAD_CODE);
    if (ours.rc == CS_E_BAD_CODE) Require(Inflate(body, 14, length, true).rc == Z_DATA_ERROR);
  }
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  if (input.Rest().size() < 6) return;
  const std::size_t piece = 1 + input.Byte(), room = 1 + input.Byte();
  Data stream = {0, 0, 0, 0, 0x12, 0x1F, 0x9D, 2};
  std::size_t length = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    const unsigned byte = input.Byte() & (i < 2 ? 0xFFU : 1U);
    stream[i] = static_cast<std::uint8_t>(byte);
    length |= std::size_t{byte} << (8 * i);
  }
  const Bytes body = input.Rest();
  stream.insert(stream.end(), body.begin(), body.end());
  const Outcome whole = Decode(stream, stream.size(), kAllRoom);
  Require(whole == Decode(stream, piece, room));
  Compare(whole, body, length);
}

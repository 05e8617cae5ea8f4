// Streams with checksum framing, decoded whole and in pieces. First byte: what the rest is. Then piece and
// room.
//   0  a framed stream, whatever it holds
//   1  a stream without framing, which gets segments with good checksums around it: the reader must come to
//      what it comes to without them
//   2  content, which goes through the writer and comes back
#include <zlib.h>

#include "fuzz/streams.h"

namespace {

using namespace tolven;
using namespace tolven::fuzz;

int Handle() {
  static const int handle = CsSearchNewHandle();
  return handle;
}

Outcome Decode(Bytes stream, std::size_t piece, std::size_t room) {
  return DecodeInPieces(stream, piece, room,
                        [](auto... arguments) { return CsRDecompress(Handle(), arguments...); });
}

void Put32(Data& to, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) to.push_back(static_cast<std::uint8_t>(value >> shift));
}

std::uint32_t Register(Bytes bytes) {
  return ~static_cast<std::uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

Data Frame(Bytes plain, std::size_t segment, Bytes content) {
  Data framed(plain.begin(), plain.begin() + CS_HEAD_SIZE);
  framed[4] |= CS_ALG_CODE_CHECKSUM;
  const Bytes coded = plain.subspan(CS_HEAD_SIZE);
  for (std::size_t at = 0; at < coded.size(); at += segment) {
    const Bytes part = coded.subspan(at, std::min(segment, coded.size() - at));
    Put32(framed, static_cast<std::uint32_t>(part.size()));
    Put32(framed, Register(coded.first(at + part.size())));
    framed.insert(framed.end(), part.begin(), part.end());
  }
  Put32(framed, 0);
  Put32(framed, Register(content));
  return framed;
}

void CompareWithPlain(Data plain, std::size_t piece, std::size_t room) {
  if (plain.size() <= CS_HEAD_SIZE) return;
  plain[4] &= static_cast<std::uint8_t>(~CS_ALG_CODE_CHECKSUM);
  const Outcome expected = Decode(plain, plain.size(), kAllRoom);
  if (expected.IsCut() || expected.rc == CS_OK) return;
  const Outcome framed = Decode(Frame(plain, piece * 7, expected.out), piece, room);
  // What lies behind the stream's end, or is missing at it, is taken for the end of the framing.
  const bool good = framed.rc == CS_END_OF_STREAM;
  Require(framed.rc == expected.rc || (framed.rc == CS_E_CHECKSUM && expected.rc > 0));
  Require(good ? framed.out == expected.out : framed.out.size() <= expected.out.size());
  Require(std::equal(framed.out.begin(), framed.out.end(), expected.out.begin()));
}

void ThereAndBack(Bytes whole, unsigned choice, std::size_t piece, std::size_t room) {
  Bytes content = whole;
  const int algorithm = (choice & 16) != 0 ? CS_ALGORITHM_LZC : CS_ALGORITHM_LZH;
  if (content.empty()) return;
  Data framed;
  int options = CS_INIT | CS_CHECKSUM | algorithm | static_cast<int>(choice >> 5) << CS_LEVEL_SHIFT;
  for (int rc = CS_END_INBUFFER; rc != CS_END_OF_STREAM; options = 0) {
    Data output(room + CS_HEAD_SIZE);
    std::int32_t read = 0, written = 0;
    rc = CsRCompress(Handle(), static_cast<std::int32_t>(content.size()), content.data(),
                     static_cast<std::int32_t>(std::min(piece, content.size())), output.data(),
                     static_cast<std::int32_t>(output.size()), options, &read, &written);
    Require(rc > 0);
    content = content.subspan(static_cast<std::size_t>(read));
    framed.insert(framed.end(), output.begin(), output.begin() + written);
  }
  Require(Decode(framed, room, piece) == Outcome{CS_END_OF_STREAM, Data(whole.begin(), whole.end())});
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  const unsigned choice = input.Byte();
  const std::size_t piece = 1 + input.Byte(), room = 1 + input.Byte();
  const Bytes rest = input.Rest();
  if (choice % 4 == 0) {
    const Outcome whole = Decode(rest, rest.size(), kAllRoom);
    if (whole.IsCut()) return;
    const Outcome pieces = Decode(rest, piece, room);
    // A segment that lies there whole is checked before it is read, so damage can show earlier.
    Require(pieces == whole || whole.rc == CS_E_CHECKSUM || (whole.rc < 0 && pieces.rc < 0));
    Require(pieces.rc != CS_END_OF_STREAM || whole.rc == CS_END_OF_STREAM);
  } else if (choice % 4 == 1) {
    CompareWithPlain(Data(rest.begin(), rest.end()), piece, room);
  } else {
    ThereAndBack(rest, choice, piece, room);
  }
}

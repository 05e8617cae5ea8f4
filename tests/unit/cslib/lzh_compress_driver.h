#pragma once

// Drives the LZH compressor call by call as a caller would, and takes its streams apart with zlib.

#include <zlib.h>

#include <cstddef>
#include <cstdint>

#include "cslib/cslib.h"
#include "cslib/lzh_compress.h"
#include "cslib/sample_data.h"
#include "gtest/gtest.h"

namespace tolven::test {

inline int LzhOptions(int level) {
  return CS_INIT | CS_ALGORITHM_LZH | level << CS_LEVEL_SHIFT;
}

// One stream, `piece` bytes of input offered and `room` bytes of output given on each call; each call's
// result is checked against what it claims. Room below a header is preceded by a start call for the header
// alone.
inline Bytes CompressInPieces(LzhCompressState& state, const Bytes& data, int options, std::size_t piece,
                              std::size_t room, bool plain = true) {
  Bytes stream;
  Bytes out(std::max<std::size_t>(room, CS_HEAD_SIZE));
  std::size_t taken = 0;
  int result = CS_E_HANDLE;
  for (bool first = true; result != CS_END_OF_STREAM; first = false) {
    const bool header_only = first && room < CS_HEAD_SIZE;
    const std::size_t offered = header_only ? 0 : std::min(piece, data.size() - taken);
    const std::size_t given = header_only ? CS_HEAD_SIZE : room;
    std::int32_t read = -1;
    std::int32_t written = -1;
    const int call_options = first ? options : options & ~CS_INIT;
    result = CsRComprLZH(state, static_cast<std::int32_t>(data.size()), data.data() + taken,
                         static_cast<std::int32_t>(offered), out.data(), static_cast<std::int32_t>(given),
                         call_options, plain, &read, &written);
    if (read < 0 || written < 0 || static_cast<std::size_t>(read) > offered ||
        static_cast<std::size_t>(written) > given) {
      ADD_FAILURE() << "read " << read << " of " << offered << ", written " << written << " of " << given;
      return {};
    }
    taken += static_cast<std::size_t>(read);
    stream.insert(stream.end(), out.begin(), out.begin() + written);

    if (result == CS_END_OUTBUFFER) {
      EXPECT_EQ(static_cast<std::size_t>(written), given) << "output was not full";
    } else if (result == CS_END_INBUFFER) {
      EXPECT_EQ(static_cast<std::size_t>(read), offered) << "input was not used up";
      EXPECT_LT(taken, data.size()) << "all declared bytes were given";
    } else if (result != CS_END_OF_STREAM) {
      ADD_FAILURE() << "result " << result;
      return {};
    }
  }
  EXPECT_EQ(taken, data.size());
  return stream;
}

inline Bytes CompressWhole(LzhCompressState& state, const Bytes& data, int level, bool plain = true) {
  // Enough for any stream of this size: nothing is ever pending.
  return CompressInPieces(state, data, LzhOptions(level), data.size(), 200000 + 2 * data.size(), plain);
}

// The uncompressed data by zlib, from the blocks behind header and preamble. Checks that the stream ends with
// the last block and one zero byte.
inline Bytes InflateBlocks(const Bytes& stream, std::size_t declared) {
  if (stream.size() < CS_HEAD_SIZE + 3) {
    ADD_FAILURE() << "only " << stream.size() << " bytes";
    return {};
  }
  const int preamble = 2 + (stream[CS_HEAD_SIZE] & 3);
  Bytes blocks;
  for (std::size_t n = CS_HEAD_SIZE; n < stream.size(); ++n) {
    const int next = n + 1 < stream.size() ? stream[n + 1] : 0;
    blocks.push_back(static_cast<std::uint8_t>((stream[n] | next << 8) >> preamble));
  }
  Bytes data(declared + 1);
  z_stream inflater{};
  EXPECT_EQ(inflateInit2(&inflater, -15), Z_OK);
  inflater.next_in = blocks.data();
  inflater.avail_in = static_cast<uInt>(blocks.size());
  inflater.next_out = data.data();
  inflater.avail_out = static_cast<uInt>(data.size());
  EXPECT_EQ(inflate(&inflater, Z_FINISH), Z_STREAM_END) << (inflater.msg != nullptr ? inflater.msg : "");
  data.resize(inflater.total_out);
  const std::size_t used = inflater.total_in;
  inflateEnd(&inflater);

  // The blocks end inside byte `used`, or inside the one after it once shifted back; the zero byte follows.
  const std::size_t body = stream.size() - CS_HEAD_SIZE - 1;
  EXPECT_TRUE(body == used || body == used + 1) << body << " bytes hold blocks of " << used;
  EXPECT_EQ(stream.back(), 0);
  return data;
}

}  // namespace tolven::test

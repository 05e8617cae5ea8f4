// lzc_file c|d INPUT OUTPUT: codes a file with LZC, or decodes it, so that whole processes can be timed
// beside compress and uncompress. Holds nothing but the two buffers, as they do.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

#include "cslib/cslib.h"

namespace {

struct Closer {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closer>;

constexpr std::size_t kPiece = 65536;

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const bool compress = argv[1][0] == 'c';
  const File in(std::fopen(argv[2], "rb"));
  const File out(std::fopen(argv[3], "wb"));
  int handle = 0;
  if (!in || !out || tolven::CsRGetHandle(&handle) != tolven::CS_OK) return 1;
  const auto total = static_cast<std::int32_t>(std::filesystem::file_size(argv[2]));
  std::vector<std::uint8_t> input(kPiece);
  std::vector<std::uint8_t> output(kPiece);
  std::int32_t at = 0;
  std::int32_t length = 0;
  int options = tolven::CS_INIT | tolven::CS_ALGORITHM_LZC;
  for (int result = tolven::CS_END_INBUFFER; result != tolven::CS_END_OF_STREAM;
       options &= ~tolven::CS_INIT) {
    if (result == tolven::CS_END_INBUFFER && at == length) {
      at = 0;
      length = static_cast<std::int32_t>(std::fread(input.data(), 1, input.size(), in.get()));
    }
    std::int32_t read = 0;
    std::int32_t written = 0;
    const auto room = static_cast<std::int32_t>(output.size());
    result = compress ? tolven::CsRCompress(handle, total, input.data() + at, length - at, output.data(),
                                            room, options, &read, &written)
                      : tolven::CsRDecompress(handle, input.data() + at, length - at, output.data(), room,
                                              options, &read, &written);
    if (result < 0) return 1;
    at += read;
    if (std::fwrite(output.data(), 1, static_cast<std::size_t>(written), out.get()) !=
        static_cast<std::size_t>(written)) {
      return 1;
    }
  }
  return 0;
}

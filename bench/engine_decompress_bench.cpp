// Decompression of independent 64 KiB blocks, as the archive stores them: this engine beside zlib's inflate,
// both over the same deflate blocks (16 KiB window, fixed and dynamic only).

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "cslib/cslib.h"
#include "cslib/streams.h"
#include "machine_files.h"

namespace {

using tolven::bench::Bytes;
using tolven::bench::kBlock;

struct Corpus {
  std::vector<Bytes> deflated, framed;
  std::int64_t bytes = 0;
};

// Blocks of the sample that zlib codes without storing any of them.
Corpus MakeCorpus(const Bytes& data) {
  constexpr int kLevel = 4;
  Corpus corpus;
  for (std::size_t at = 0; at < data.size(); at += kBlock) {
    const auto begin = data.begin() + static_cast<std::ptrdiff_t>(at);
    const Bytes block(begin, begin + static_cast<std::ptrdiff_t>(std::min(kBlock, data.size() - at)));
    Bytes deflated = tolven::test::Deflate(block, kLevel, Z_DEFAULT_STRATEGY);
    if (tolven::test::HasStoredBlock(deflated)) continue;
    // One preamble bit: the bits of the two streams are not aligned alike.
    corpus.framed.push_back(
        tolven::test::BitWriter(static_cast<std::uint32_t>(block.size()), 1).Bytes(deflated).Take());
    corpus.deflated.push_back(std::move(deflated));
    corpus.bytes += static_cast<std::int64_t>(block.size());
  }
  return corpus;
}

Bytes Text() {
  return tolven::bench::ReadFiles("/usr/include", ".h");
}
Bytes Binary() {
  return tolven::bench::ReadFiles("/usr/lib", ".so");
}
Bytes Generated() {
  return tolven::test::MakeData(tolven::test::Kind::kText, tolven::bench::kSampleSize);
}

void Engine(benchmark::State& state, Bytes (*sample)()) {
  const Corpus corpus = MakeCorpus(sample());
  if (corpus.bytes == 0) return state.SkipWithError("no such files on this machine");
  Bytes out(kBlock);
  for (auto _ : state) {
    for (std::size_t i = 0; i < corpus.framed.size(); ++i) {
      std::int32_t read = 0, written = 0;
      const Bytes& in = corpus.framed[i];
      const int rc =
          tolven::_CsDecompr(in.data(), static_cast<std::int32_t>(in.size()), out.data(),
                             static_cast<std::int32_t>(out.size()), tolven::CS_INIT, &read, &written);
      if (rc != tolven::CS_END_OF_STREAM) state.SkipWithError("not decompressed");
      benchmark::DoNotOptimize(out.data());
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * corpus.bytes);
}

void ZlibInflate(benchmark::State& state, Bytes (*sample)()) {
  Corpus corpus = MakeCorpus(sample());
  if (corpus.bytes == 0) return state.SkipWithError("no such files on this machine");
  z_stream z{};
  inflateInit2(&z, -15);
  Bytes out(kBlock);
  for (auto _ : state) {
    for (Bytes& in : corpus.deflated) {
      inflateReset(&z);
      z.next_in = in.data();
      z.avail_in = static_cast<uInt>(in.size());
      z.next_out = out.data();
      z.avail_out = static_cast<uInt>(out.size());
      if (inflate(&z, Z_FINISH) != Z_STREAM_END) state.SkipWithError("not inflated");
      benchmark::DoNotOptimize(out.data());
    }
  }
  inflateEnd(&z);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * corpus.bytes);
}

}  // namespace

BENCHMARK_CAPTURE(Engine, text, Text)->Name("decompress/text/tolven");
BENCHMARK_CAPTURE(ZlibInflate, text, Text)->Name("decompress/text/zlib");
BENCHMARK_CAPTURE(Engine, binary, Binary)->Name("decompress/binary/tolven");
BENCHMARK_CAPTURE(ZlibInflate, binary, Binary)->Name("decompress/binary/zlib");
BENCHMARK_CAPTURE(Engine, generated, Generated)->Name("decompress/generated/tolven");
BENCHMARK_CAPTURE(ZlibInflate, generated, Generated)->Name("decompress/generated/zlib");

// Decompression of independent 64 KiB blocks, as the archive stores them: this engine against zlib's inflate,
// both over the same deflate blocks (16 KiB window, fixed and dynamic only). Files named in
// TOLVEN_BENCH_FILES (separated by ':') are cut into blocks; without it, generated text and records stand in.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "cslib/cslib.h"
#include "cslib/lzh_decompress.h"
#include "cslib/lzh_test_streams.h"

namespace {

using tolven::lzhtest::Bytes;

constexpr std::size_t kBlock = 65536;

struct Corpus {
  std::vector<Bytes> raw, deflated, framed;
  std::int64_t bytes = 0;
};

void AddBlocks(Corpus& corpus, const Bytes& data, int level) {
  for (std::size_t at = 0; at < data.size(); at += kBlock) {
    const auto begin = data.begin() + static_cast<std::ptrdiff_t>(at);
    Bytes block(begin, begin + static_cast<std::ptrdiff_t>(std::min(kBlock, data.size() - at)));
    Bytes deflated = tolven::lzhtest::Deflate(block, level, Z_DEFAULT_STRATEGY);
    if (tolven::lzhtest::HasStoredBlock(deflated)) continue;
    // Three preamble bits set: the bits of the two streams are not aligned alike.
    corpus.framed.push_back(
        tolven::lzhtest::BitWriter(static_cast<std::uint32_t>(block.size()), 1).Bytes(deflated).Take());
    corpus.deflated.push_back(std::move(deflated));
    corpus.bytes += static_cast<std::int64_t>(block.size());
    corpus.raw.push_back(std::move(block));
  }
}

Corpus Files(const std::string& names, int level) {
  Corpus corpus;
  std::istringstream list(names);
  for (std::string name; std::getline(list, name, ':');) {
    std::ifstream file(name, std::ios::binary);
    AddBlocks(corpus, Bytes(std::istreambuf_iterator<char>(file), {}), level);
  }
  return corpus;
}

Corpus Load(Bytes (*make)(std::size_t)) {
  constexpr int kLevel = 4;
  if (const char* names = std::getenv("TOLVEN_BENCH_FILES")) return Files(names, kLevel);
  Corpus corpus;
  AddBlocks(corpus, make(16 * kBlock), kLevel);
  return corpus;
}

void Engine(benchmark::State& state, Bytes (*make)(std::size_t)) {
  const Corpus corpus = Load(make);
  const auto stream = tolven::NewLzhDecompressState();
  Bytes out(kBlock);
  for (auto _ : state) {
    for (std::size_t i = 0; i < corpus.framed.size(); ++i) {
      std::int32_t read = 0, written = 0;
      const Bytes& in = corpus.framed[i];
      const int rc =
          tolven::CsRDecomprLZH(*stream, in.data(), static_cast<std::int32_t>(in.size()), out.data(),
                                static_cast<std::int32_t>(out.size()), tolven::CS_INIT, &read, &written);
      if (rc != tolven::CS_END_OF_STREAM) state.SkipWithError("not decompressed");
      benchmark::DoNotOptimize(out.data());
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * corpus.bytes);
}

void ZlibInflate(benchmark::State& state, Bytes (*make)(std::size_t)) {
  Corpus corpus = Load(make);
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

BENCHMARK_CAPTURE(Engine, text, tolven::lzhtest::Text);
BENCHMARK_CAPTURE(ZlibInflate, text, tolven::lzhtest::Text);
BENCHMARK_CAPTURE(Engine, binary, tolven::lzhtest::Binary);
BENCHMARK_CAPTURE(ZlibInflate, binary, tolven::lzhtest::Binary);

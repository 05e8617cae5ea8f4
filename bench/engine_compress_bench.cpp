// The LZH compressor on independent blocks of 64 KiB, as archives use it, beside zlib's raw deflate with the
// same window and search limits. Inputs: generated text, and files of this machine.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "cslib/cslib.h"
#include "machine_files.h"

namespace {

using tolven::bench::Bytes;
using tolven::bench::kBlock;
using tolven::bench::kSampleSize;
using tolven::bench::ReadFiles;

Bytes GenerateText() {
  std::mt19937 random(1);
  std::vector<std::string> words(3000);
  for (std::string& word : words) {
    for (std::size_t n = 2 + random() % 8; n != 0; --n)
      word += "etaoinshrdlucmfw"[random() % 16 * (random() % 16) / 16];
    word += ' ';
  }
  Bytes sample;
  while (sample.size() < kSampleSize) {
    const double draw = std::generate_canonical<double, 32>(random);
    const std::string& word = words[static_cast<std::size_t>(draw * draw * draw * 3000)];
    sample.insert(sample.end(), word.begin(), word.end());
  }
  sample.resize(kSampleSize);
  return sample;
}

const Bytes& Sample(int index) {
  static const Bytes samples[] = {GenerateText(), ReadFiles("/usr/lib", ".so"), ReadFiles("/usr/share", ".p"),
                                  ReadFiles("/usr/include", ".h")};
  return samples[index];
}
constexpr const char* kSampleNames[] = {"generated text", "shared libraries", "scripts", "headers"};

// good, lazy, nice, chain: the limits of the level in zlib's terms.
struct Effort {
  int good, lazy, nice, chain;
};
constexpr Effort EffortOf(int level) {
  switch (level) {
    case 1:
      return {4, 4, 258, 16};
    case 2:
      return {6, 8, 258, 16};
    case 6:
      return {8, 128, 258, 256};
    default:
      return {32, 258, 258, 4096};
  }
}

void Report(benchmark::State& state, const Bytes& sample, std::size_t compressed) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(sample.size()));
  state.SetLabel(kSampleNames[state.range(1)]);
  state.counters["ratio"] = static_cast<double>(compressed) / static_cast<double>(sample.size());
}

void Lzh(benchmark::State& state) {
  const Bytes& sample = Sample(static_cast<int>(state.range(1)));
  if (sample.empty()) return state.SkipWithError("no such files on this machine");
  const int options =
      tolven::CS_INIT | tolven::CS_ALGORITHM_LZH | static_cast<int>(state.range(0)) << tolven::CS_LEVEL_SHIFT;
  Bytes out(2 * kBlock);
  std::size_t compressed = 0;
  for (auto _ : state) {
    compressed = 0;
    for (std::size_t at = 0; at < sample.size(); at += kBlock) {
      std::int32_t read = 0;
      std::int32_t written = 0;
      const int result = tolven::_CsCompr(kBlock, sample.data() + at, kBlock, out.data(),
                                          static_cast<std::int32_t>(out.size()), options, &read, &written);
      if (result != tolven::CS_END_OF_STREAM) return state.SkipWithError("compression failed");
      compressed += static_cast<std::size_t>(written);
    }
  }
  Report(state, sample, compressed);
}

void Zlib(benchmark::State& state) {
  const Bytes& sample = Sample(static_cast<int>(state.range(1)));
  if (sample.empty()) return state.SkipWithError("no such files on this machine");
  const Effort effort = EffortOf(static_cast<int>(state.range(0)));
  z_stream stream{};
  deflateInit2(&stream, 6, Z_DEFLATED, -14, 8, Z_DEFAULT_STRATEGY);
  Bytes out(2 * kBlock);
  std::size_t compressed = 0;
  for (auto _ : state) {
    compressed = 0;
    for (std::size_t at = 0; at < sample.size(); at += kBlock) {
      deflateReset(&stream);
      deflateTune(&stream, effort.good, effort.lazy, effort.nice, effort.chain);
      stream.next_in = const_cast<Bytef*>(sample.data() + at);
      stream.avail_in = kBlock;
      stream.next_out = out.data();
      stream.avail_out = static_cast<uInt>(out.size());
      if (deflate(&stream, Z_FINISH) != Z_STREAM_END) {
        deflateEnd(&stream);
        return state.SkipWithError("zlib failed");
      }
      compressed += stream.total_out;
    }
  }
  deflateEnd(&stream);
  Report(state, sample, compressed);
}

}  // namespace

BENCHMARK(Lzh)
    ->Name("compress/tolven")
    ->ArgsProduct({{1, 2, 6, 9}, {0, 1, 2, 3}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(Zlib)
    ->Name("compress/zlib")
    ->ArgsProduct({{1, 2, 6, 9}, {0, 1, 2, 3}})
    ->Unit(benchmark::kMillisecond);

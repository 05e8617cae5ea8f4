// LZC through the engine's interface, in pieces of 64 KiB as a reader of old archives would call it, and what
// one call costs apart from the coder. compress(1) has no library to put beside it; bench/lzc_file.cpp
// times programs.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "cslib/cslib.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kSize = 16U << 20;
constexpr std::int32_t kPiece = 65536;

Bytes Text() {
  std::mt19937 random(1);
  std::vector<std::string> words(3000);
  for (std::string& word : words) {
    for (std::size_t n = 2 + random() % 8; n != 0; --n)
      word += "etaoinshrdlucmfw"[random() % 16 * (random() % 16) / 16];
    word += ' ';
  }
  Bytes text;
  while (text.size() < kSize) {
    const std::string& word = words[random() % words.size() * (random() % words.size()) / words.size()];
    text.insert(text.end(), word.begin(), word.end());
  }
  text.resize(kSize);
  return text;
}

Bytes Noise() {
  std::mt19937 random(1);
  Bytes noise(kSize);
  for (auto& byte : noise) byte = static_cast<std::uint8_t>(random());
  return noise;
}

struct Handle {
  Handle() { static_cast<void>(tolven::CsRGetHandle(&number)); }
  ~Handle() { static_cast<void>(tolven::CsRCloseHandle(number)); }
  int number = 0;
};

// Runs a whole stream; the number of bytes that came out, 0 after an error.
template <typename Call>
std::size_t Run(const Bytes& in, Bytes& out, Call call) {
  std::size_t taken = 0, made = 0;
  for (int options = tolven::CS_INIT;; options = 0) {
    std::int32_t read = 0, written = 0;
    const auto inLen = static_cast<std::int32_t>(std::min<std::size_t>(kPiece, in.size() - taken));
    const auto outLen = static_cast<std::int32_t>(std::min<std::size_t>(kPiece, out.size() - made));
    const int result = call(in.data() + taken, inLen, out.data() + made, outLen, options, &read, &written);
    taken += static_cast<std::size_t>(read);
    made += static_cast<std::size_t>(written);
    if (result == tolven::CS_END_OF_STREAM) return made;
    if (result < 0) return 0;
  }
}

Bytes Pack(const Handle& handle, const Bytes& data) {
  Bytes stream(2 * data.size());
  stream.resize(Run(data, stream, [&](auto... arguments) {
    return tolven::CsRCompress(handle.number, static_cast<std::int32_t>(data.size()), arguments...);
  }));
  return stream;
}

void LzcCompress(benchmark::State& state, Bytes (*make)()) {
  const Handle handle;
  const Bytes data = make();
  std::size_t size = 0;
  for (auto _ : state) size = Pack(handle, data).size();
  if (size == 0) state.SkipWithError("the compressor failed");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
  state.counters["percent"] = 100.0 * static_cast<double>(size) / static_cast<double>(data.size());
}

void LzcDecompress(benchmark::State& state, Bytes (*make)()) {
  const Handle handle;
  const Bytes data = make();
  const Bytes stream = Pack(handle, data);
  Bytes out(data.size());
  for (auto _ : state) {
    Run(stream, out, [&](auto... arguments) { return tolven::CsRDecompress(handle.number, arguments...); });
  }
  if (out != data) state.SkipWithError("the round trip failed");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}

// A call that has nothing to do: at the end of its stream and without input.
void CallAtEnd(benchmark::State& state) {
  const Handle handle;
  const Bytes stream = Pack(handle, {'x'});
  Bytes out(16);
  std::int32_t read = 0, written = 0;
  const int end =
      tolven::CsRDecompress(handle.number, stream.data(), static_cast<std::int32_t>(stream.size()),
                            out.data(), 16, tolven::CS_INIT, &read, &written);
  if (end != tolven::CS_END_OF_STREAM) return state.SkipWithError("not at the end");
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        tolven::CsRDecompress(handle.number, nullptr, 0, out.data(), 16, 0, &read, &written));
  }
}

}  // namespace

BENCHMARK_CAPTURE(LzcCompress, text, Text)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LzcCompress, noise, Noise)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LzcDecompress, text, Text)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LzcDecompress, noise, Noise)->Unit(benchmark::kMillisecond);
BENCHMARK(CallAtEnd);

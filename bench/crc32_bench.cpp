// CRC-32 over one 64 KiB block: what the program uses, against the ways it was built up from, and against
// zlib.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <random>
#include <vector>

#include "cslib/crc32.h"

namespace {

std::uint32_t Zlib(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  return static_cast<std::uint32_t>(::crc32(crc, bytes, static_cast<uInt>(count)));
}

void Crc32(benchmark::State& state, tolven::crc32::Kernel kernel) {
  std::mt19937 random(1);
  std::vector<std::uint8_t> block(static_cast<std::size_t>(state.range(0)));
  for (auto& byte : block) byte = static_cast<std::uint8_t>(random());
  std::uint32_t crc = 0;
  for (auto _ : state) {
    crc = kernel(crc, block.data(), block.size());
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

}  // namespace

BENCHMARK_CAPTURE(Crc32, program, tolven::CRC32Buf)->Name("crc32/64K/tolven")->Arg(65536);
BENCHMARK_CAPTURE(Crc32, bytewise, tolven::crc32::UpdateBytewise)->Name("crc32/64K/bytewise")->Arg(65536);
BENCHMARK_CAPTURE(Crc32, sliced, tolven::crc32::UpdateSliced)->Name("crc32/64K/sliced")->Arg(65536);
BENCHMARK_CAPTURE(Crc32, zlib, Zlib)->Name("crc32/64K/zlib")->Arg(65536);
BENCHMARK_CAPTURE(Crc32, small, tolven::CRC32Buf)->Name("crc32/small/tolven")->Arg(64)->Arg(1024);

#pragma once

#include <cstdint>
#include <memory>

namespace tolven {

struct LzcCompressState;
struct LzcDecompressState;
struct LzcCompressStateDeleter {
  void operator()(LzcCompressState* state) const;
};
struct LzcDecompressStateDeleter {
  void operator()(LzcDecompressState* state) const;
};
using LzcCompressStatePtr = std::unique_ptr<LzcCompressState, LzcCompressStateDeleter>;
using LzcDecompressStatePtr = std::unique_ptr<LzcDecompressState, LzcDecompressStateDeleter>;

// Null when memory is exhausted.
LzcCompressStatePtr NewLzcCompressState();
LzcDecompressStatePtr NewLzcDecompressState();

// One call of an LZC stream (arguments and results as CsRCompress and CsRDecompress).
int CsRComprLZC(LzcCompressState& state, std::int32_t total, const std::uint8_t* in, std::int32_t inLen,
                std::uint8_t* out, std::int32_t outLen, int options, std::int32_t* read,
                std::int32_t* written);
int CsRDecomprLZC(LzcDecompressState& state, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written);

}  // namespace tolven

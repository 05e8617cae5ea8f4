#pragma once

#include <cstdint>
#include <memory>

namespace tolven {

struct LzhDecompressState;
struct LzhDecompressStateDeleter {
  void operator()(LzhDecompressState* state) const;
};
using LzhDecompressStatePtr = std::unique_ptr<LzhDecompressState, LzhDecompressStateDeleter>;

// Null when memory is exhausted.
LzhDecompressStatePtr NewLzhDecompressState();

// One call of an LZH stream (arguments and results as CsRDecompress).
int CsRDecomprLZH(LzhDecompressState& state, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written);

}  // namespace tolven

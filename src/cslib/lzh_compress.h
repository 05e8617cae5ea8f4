#pragma once

#include <cstdint>
#include <memory>

namespace tolven {

struct LzhCompressState;  // everything a stream keeps between calls; about 300 KiB, no allocation per call
struct LzhCompressStateDeleter {
  void operator()(LzhCompressState* state) const;
};
using LzhCompressStatePtr = std::unique_ptr<LzhCompressState, LzhCompressStateDeleter>;

// Null when memory is exhausted.
LzhCompressStatePtr NewLzhCompressState();

// One call of an LZH stream (arguments and results as CsRCompress). `plainPreamble` replaces the random
// preamble by two zero bits, so that two runs can be compared.
int CsRComprLZH(LzhCompressState& state, std::int32_t total, const std::uint8_t* in, std::int32_t inLen,
                std::uint8_t* out, std::int32_t outLen, int options, bool plainPreamble, std::int32_t* read,
                std::int32_t* written);

}  // namespace tolven

#include "cslib/lzh_compress.h"

#include <algorithm>
#include <array>
#include <type_traits>

namespace tolven {
namespace {

static_assert(!std::is_copy_constructible_v<LzhCompressState>);

// What a level means: good length, laziness, chain. Each row searches longer than the one above it for
// matches that get rarer; archives are made with row 2, which finds most of them in 16 candidates. There is
// no length that ends a search early but the longest possible one, so the higher rows are slow on runs.
constexpr std::array<lzh::LevelParameters, 10> ConfigTab = {{
    {0, 0, 0},  // levels begin with 1
    {4, 4, 16},
    {6, 8, 16},
    {8, 16, 32},
    {8, 32, 64},
    {8, 64, 128},
    {8, 128, 256},
    {8, 128, 512},
    {32, 258, 1024},
    {32, 258, 4096},
}};

// Runs on from where the last call stopped. Pending bytes go first, and as long as there are any nothing else
// is done: a block is only ever sent with the overflow buffer empty, so it always has a place.
CsResult Run(LzhCompressState& state, CsInput& in) {
  if (!state.output.Drain()) return CS_END_OUTBUFFER;
  if (state.finalFlushed) return CS_END_OF_STREAM;

  lzh::LzhInput input{CsInput(in.Rest().first(std::min(in.Left(), state.missing))), state.missing};
  const lzh::LzhMatcher::Outcome outcome = state.matcher.Run(input, state.trees, state.output);
  in.at = input.bytes.at;
  state.missing = input.missing;
  switch (outcome) {
    case lzh::LzhMatcher::Outcome::kInputUsedUp:
      return CS_END_INBUFFER;
    case lzh::LzhMatcher::Outcome::kOutputFull:
      return CS_END_OUTBUFFER;
    case lzh::LzhMatcher::Outcome::kEnd:
      break;
  }
  // The matcher stops at a flush that leaves something pending, so nothing is pending here, and the block can
  // be the final one: one that follows pending bytes would have to be sent as any other, with an empty one
  // behind.
  state.trees.FlushBlock(true, state.output);
  state.finalFlushed = true;
  return state.output.HasPending() ? CS_END_OUTBUFFER : CS_END_OF_STREAM;
}

}  // namespace

// Nothing of an earlier stream is cleared that could not be seen: the matcher says what it relies on.
void StartComprLZH(LzhCompressState& state, std::int32_t length, int level) {
  state.failure = CS_OK;
  state.finalFlushed = false;
  state.missing = static_cast<std::size_t>(length);
  state.matcher.Start(ConfigTab[static_cast<std::size_t>(level)]);
  state.trees.Start(level);
  state.output.Start();
}

CsResult CsRComprLZH(LzhCompressState& state, CsInput& in, CsOutput& out) {
  if (state.failure != CS_OK) return state.failure;
  state.output.Attach(out);
  const CsResult result = Run(state, in);
  out = state.output.Detach();
  return result;
}

}  // namespace tolven

#include "cslib/lzh_compress.h"

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <new>

#include "cslib/cslib.h"
#include "cslib/lzh_compress_output.h"
#include "cslib/lzh_matcher.h"
#include "cslib/lzh_trees.h"

namespace tolven {
namespace {

constexpr int kDefaultLevel = 2;
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

enum class Stage { kNotStarted, kBlocks, kFinalFlushed };

// Two streams started in the same second need not differ: the preamble protects nothing.
std::uint32_t RandomBits() {
  thread_local unsigned seed = static_cast<unsigned>(std::time(nullptr));
  return static_cast<std::uint32_t>(rand_r(&seed));
}

}  // namespace

struct LzhCompressState {
  Stage stage = Stage::kNotStarted;
  std::size_t missing = 0;  // declared bytes not taken in yet
  lzh::LzhMatcher matcher;
  lzh::LzhTrees trees;
  lzh::LzhOutput output;
};

void LzhCompressStateDeleter::operator()(LzhCompressState* state) const {
  delete state;
}

LzhCompressStatePtr NewLzhCompressState() {
  return LzhCompressStatePtr(new (std::nothrow) LzhCompressState);
}

namespace {

// A number r of 2 bits, then r bits that mean nothing: the reader skips them.
void SendPreamble(lzh::LzhTrees& trees, bool plain) {
  const std::uint32_t r = plain ? 0 : RandomBits() & 3U;
  trees.SendPreamble(r, 2);
  if (r > 0) trees.SendPreamble(RandomBits() & ((1U << r) - 1U), static_cast<int>(r));
}

// Writes the stream header to `header` and forgets whatever the state held before.
int StartStream(LzhCompressState& state, std::int32_t total, std::uint8_t* header, int options,
                bool plainPreamble) {
  int level = options >> CS_LEVEL_SHIFT;
  if (level < 1 || level > 9) level = kDefaultLevel;
  const int result = CsRSetHead(
      header, total, static_cast<std::uint8_t>((options & CS_CHECKSUM) | (1 << 4) | CS_ALG_CODE_LZH),
      static_cast<std::uint8_t>(level));
  if (result != CS_OK) return result;

  state.missing = static_cast<std::size_t>(total);
  state.matcher.Start(ConfigTab[static_cast<std::size_t>(level)]);
  state.trees.Start(level);
  state.output.Start();
  SendPreamble(state.trees, plainPreamble);
  state.stage = Stage::kBlocks;
  return CS_OK;
}

// Runs on from where the last call stopped.
int Continue(LzhCompressState& state, lzh::LzhInput& input) {
  if (!state.output.Drain()) return CS_END_OUTBUFFER;
  if (state.stage == Stage::kFinalFlushed) return CS_END_OF_STREAM;

  switch (state.matcher.Run(input, state.trees, state.output)) {
    case lzh::LzhMatcher::Outcome::kInputUsedUp:
      return CS_END_INBUFFER;
    case lzh::LzhMatcher::Outcome::kOutputFull:
      return CS_END_OUTBUFFER;
    case lzh::LzhMatcher::Outcome::kEnd:
      break;
  }
  // The matcher stops at a flush that leaves something pending, so nothing is pending here.
  state.trees.FlushBlock(true, state.output);
  state.stage = Stage::kFinalFlushed;
  return state.output.HasPending() ? CS_END_OUTBUFFER : CS_END_OF_STREAM;
}

}  // namespace

int CsRComprLZH(LzhCompressState& state, std::int32_t total, const std::uint8_t* in, std::int32_t inLen,
                std::uint8_t* out, std::int32_t outLen, int options, bool plainPreamble, std::int32_t* read,
                std::int32_t* written) {
  *read = 0;
  *written = 0;
  std::size_t used = 0;
  if ((options & CS_INIT) != 0) {
    state.stage = Stage::kNotStarted;
    if (outLen < CS_HEAD_SIZE) return CS_E_OUT_BUFFER_LEN;
    const int result = StartStream(state, total, out, options, plainPreamble);
    if (result != CS_OK) return result;
    used = CS_HEAD_SIZE;
    *written = CS_HEAD_SIZE;
    if (outLen == CS_HEAD_SIZE) return CS_END_OUTBUFFER;
  }
  // Without a start call, or after one that failed, there is no declared length to work towards.
  if (state.stage == Stage::kNotStarted) return CS_E_INVALID_LEN;

  const auto given = static_cast<std::size_t>(std::max(inLen, 0));
  lzh::LzhInput input{in, std::min(given, state.missing), state.missing};
  state.output.Attach({out, static_cast<std::size_t>(std::max(outLen, 0))}, used);
  const int result = Continue(state, input);
  *read = static_cast<std::int32_t>(state.missing - input.missing);
  *written = static_cast<std::int32_t>(state.output.written());
  state.missing = input.missing;
  return result;
}

}  // namespace tolven

#pragma once

// The window with its hash chains, and the lazy search that turns input into literals and matches.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/lzh_compress_output.h"
#include "cslib/lzh_format.h"
#include "cslib/lzh_trees.h"

namespace tolven::lzh {

// What is left of the input: `next[0..left)` of this call, and `missing` declared bytes (these included) that
// have not been taken into the window. left <= missing.
struct LzhInput {
  const std::uint8_t* next = nullptr;
  std::size_t left = 0;
  std::size_t missing = 0;
};

struct LevelParameters {
  std::uint32_t good_length;  // a match this long quarters the search for a better one
  std::uint32_t max_lazy;     // a match this long ends it
  std::uint32_t max_chain;    // candidates examined for one position
};

class LzhMatcher {
 public:
  enum class Outcome {
    kInputUsedUp,  // declared bytes are missing
    kOutputFull,   // a block did not fit; to be continued with more room
    kEnd,          // everything is tallied, the final block may be flushed
  };

  // A new stream. Nothing of an earlier one can show afterwards.
  void Start(const LevelParameters& parameters);

  // Takes in input and tallies it in `trees`, flushing full blocks to `output`, in which nothing may be
  // pending.
  Outcome Run(LzhInput& input, LzhTrees& trees, LzhOutput& output);

 private:
  static constexpr std::uint32_t kWindowBytes = 2 * kWindowSize;
  // Positions are matched while this much is known behind them, so that only the end of the input can cut a
  // match.
  static constexpr std::uint32_t kMinLookahead = kMaxMatch + kMinMatch + 1;
  static constexpr std::uint32_t kMaxDist = kWindowSize - kMinLookahead;
  static constexpr std::uint32_t kTooFar = 4096;  // beyond it three literals are cheaper than a match of 3
  // Zeros behind the window: comparing 8 bytes at a time touches up to 264 bytes from the last position on.
  static constexpr std::uint32_t kPadding = 264;
  static_assert(kPadding >= kMinLookahead && kPadding % 8 == 0);
  static constexpr std::uint32_t kPositionMask = kWindowSize - 1;
  static constexpr int kHashShift = 5;
  static constexpr std::uint32_t kHashMask = kWindowSize - 1;
  static constexpr std::uint32_t kNoMatch = kMinMatch - 1;

  struct Candidate {
    std::uint32_t length;
    std::uint32_t start;
  };

  bool Fill(LzhInput& input);
  void FillWindow(LzhInput& input);
  void Slide();
  void ClearBehindInput();
  bool MatchUntil(std::uint32_t stop, LzhTrees& trees, LzhOutput& output);
  Candidate LongestMatch(std::uint32_t position, std::uint32_t candidate, Candidate best) const;
  bool FlushIfDue(std::uint32_t position, std::uint32_t next_position, LzhTrees& trees, LzhOutput& output);

  LevelParameters parameters_{};
  std::uint32_t strstart_ = 0;
  std::uint32_t lookahead_ = 0;
  std::int64_t block_start_ = 0;  // negative when it has slid out of the window
  std::uint32_t match_start_ = 0;
  std::uint32_t match_length_ = kNoMatch;
  bool match_available_ = false;  // the byte before strstart_ is neither tallied nor part of a match
  bool slid_ = false;
  bool end_of_input_ = false;

  // Latest position of each hash value, and for each position (modulo kWindowSize) the one before it with the
  // same value; 0 ends a chain, so position 0 is never found. Entries of prev_ further back than kMaxDist are
  // stale.
  std::array<std::uint16_t, kWindowSize> head_{};
  std::array<std::uint16_t, kWindowSize> prev_{};
  std::array<std::uint8_t, kWindowBytes + kPadding> window_{};
};

}  // namespace tolven::lzh

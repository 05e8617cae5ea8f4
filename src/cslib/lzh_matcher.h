#pragma once

// The window with its hash chains, and the lazy search that turns input into literals and matches.
//
// Which matches are found, and which of them are taken, is fixed: streams of this engine are compared and
// signed as bytes. So nothing here may find a better match than the description of the format does. What is
// free is how fast it is found, and most of what looks odd below is about that: bytes are compared eight at a
// time, the candidates that cannot win are dropped by one comparison, and positions enter the chains many
// at a time.
//
// A position goes through three states: taken into the window (Fill), matched (MatchUntil), and at most 16
// KiB back in the window, where later positions find it. The window is twice as long, so that it is moved
// only once in 16 KiB of input:
//
//   0          strstart_ - kMaxDist       strstart_          strstart_ + lookahead_      32768
//   | behind   | found by later positions | to be matched    | room for input            | zeros |
//
// When the room is gone, fewer than 262 bytes are left to be matched. So strstart_ is above 32506, everything
// that it can find is above 16384, and the lower half of the window is of no use to anybody.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/bytes.h"
#include "cslib/lzh_format.h"
#include "cslib/lzh_output.h"
#include "cslib/lzh_trees.h"

namespace tolven::lzh {

// What is left of the input: `bytes` of this call, and `missing` declared bytes (these included) that have
// not been taken into the window. bytes.Left() <= missing.
struct LzhInput {
  CsInput bytes;
  std::size_t missing = 0;
};

struct LevelParameters {
  std::uint32_t goodLength;  // a match this long quarters the search for a better one
  std::uint32_t maxLazy;     // a match this long ends it
  std::uint32_t maxChain;    // candidates examined for one position
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
  // match: 258 bytes of the longest match, its three bytes of hash at the position behind it, and one more.
  static constexpr std::uint32_t kMinLookahead = kMaxMatch + kMinMatch + 1;
  // No match begins further back. The window holds more, but a position this far behind is still there,
  // whole, when its last byte is compared.
  static constexpr std::uint32_t kMaxDist = kWindowSize - kMinLookahead;
  static constexpr std::uint32_t kTooFar = 4096;  // beyond it three literals are cheaper than a match of 3
  // Zeros behind the window: comparing 8 bytes at a time touches up to 264 bytes from the last position on,
  // and what a match may meet behind the end of the input is fixed, too.
  static constexpr std::uint32_t kPadding = 264;
  static_assert(kPadding >= kMinLookahead && kPadding % 8 == 0);
  // Positions enter the chains this far ahead of the one that is matched. Their entries of prev_ displace
  // those of positions a window further back, which no search may meet any more.
  static constexpr std::uint32_t kInsertAhead = 256;
  static_assert(kInsertAhead + kMaxDist < kWindowSize);
  static constexpr std::uint32_t kPositionMask = kWindowSize - 1;
  // Three bytes, each shifted by 5 more: 15 bits and more, of which 14 count, so the oldest byte's upper bits
  // are dropped. Candidates of one chain nearly always share all three bytes, and are compared in any case.
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
  void InsertUntil(std::uint32_t end);
  bool MatchUntil(std::uint32_t stop, LzhTrees& trees, LzhOutput& output);
  Candidate LongestMatch(std::uint32_t position, std::uint32_t candidate, Candidate best) const;
  bool FlushIfDue(std::uint32_t position, std::uint32_t nextPosition, LzhTrees& trees, LzhOutput& output);

  LevelParameters parameters_{};
  std::uint32_t strstart_ = 0;
  std::uint32_t lookahead_ = 0;
  std::uint32_t inserted_ = 0;   // the first position that is in no chain
  std::int64_t blockStart_ = 0;  // negative when it has slid out of the window
  std::uint32_t matchStart_ = 0;
  std::uint32_t matchLength_ = kNoMatch;
  bool matchAvailable_ = false;  // the byte before strstart_ is neither tallied nor part of a match
  bool slid_ = false;
  bool endOfInput_ = false;

  // Latest position of each hash value, and for each position (modulo kWindowSize) the one before it with the
  // same value; 0 ends a chain, so position 0 is never found. Entries of positions
  // further back than kMaxDist may be gone, their places taken by younger positions; a search stops at that
  // distance before it follows one.
  std::array<std::uint16_t, kWindowSize> head_{};
  std::array<std::uint16_t, kWindowSize> prev_{};
  std::array<std::uint8_t, kWindowBytes + kPadding> window_{};
};

}  // namespace tolven::lzh

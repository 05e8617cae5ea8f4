#include "cslib/lzh_matcher.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace tolven::lzh {
namespace {

// Number of equal bytes, at most kMaxMatch. Reads up to 264 bytes of both. The first byte that differs is the
// lowest one of the first word that does.
inline std::uint32_t MatchLength(const std::uint8_t* left, const std::uint8_t* right) {
  for (std::uint32_t n = 0; n < kMaxMatch; n += 8) {
    const std::uint64_t difference = LoadLittle64(left + n) ^ LoadLittle64(right + n);
    if (difference != 0)
      return std::min(n + static_cast<std::uint32_t>(std::countr_zero(difference)) / 8, kMaxMatch);
  }
  return kMaxMatch;
}

}  // namespace

void LzhMatcher::Start(const LevelParameters& parameters) {
  parameters_ = parameters;
  strstart_ = lookahead_ = inserted_ = 0;
  blockStart_ = 0;
  matchStart_ = 0;
  matchLength_ = kNoMatch;
  matchAvailable_ = slid_ = endOfInput_ = false;
  // With the heads gone no chain leads to an old entry of prev_, so those may stay; old bytes of the window
  // are cleared where they could be seen, see ClearBehindInput.
  head_.fill(0);
}

// Matching goes on as far as any decision is certain: while input is missing, a position is matched only with
// kMinLookahead bytes behind it, so that how the caller cuts the input changes nothing. What has been tallied
// stays in the block when the call ends.
LzhMatcher::Outcome LzhMatcher::Run(LzhInput& input, LzhTrees& trees, LzhOutput& output) {
  for (;;) {
    if (!endOfInput_ && lookahead_ < kMinLookahead && !Fill(input)) return Outcome::kInputUsedUp;
    if (lookahead_ == 0) break;
    const std::uint32_t end = strstart_ + lookahead_;
    const std::uint32_t stop = endOfInput_ ? end : end - kMinLookahead + 1;
    if (!MatchUntil(stop, trees, output)) return Outcome::kOutputFull;
  }
  if (matchAvailable_) {
    // The final block follows in any case, so a flush that falls due here is not done.
    trees.TallyLiteral(window_[strstart_ - 1]);
    matchAvailable_ = false;
  }
  return Outcome::kEnd;
}

// True iff positions can be processed: enough is known behind strstart_, or there is no more input.
bool LzhMatcher::Fill(LzhInput& input) {
  for (;;) {
    if (input.missing == 0) {
      endOfInput_ = true;
      ClearBehindInput();
      return true;
    }
    if (lookahead_ >= kMinLookahead) return true;
    if (input.bytes.Left() == 0) return false;
    FillWindow(input);
  }
}

void LzhMatcher::FillWindow(LzhInput& input) {
  if (strstart_ + lookahead_ == kWindowBytes) Slide();
  const std::uint32_t end = strstart_ + lookahead_;
  const std::size_t count = std::min<std::size_t>(kWindowBytes - end, input.bytes.Left());
  std::memcpy(window_.data() + end, input.bytes.at, count);
  lookahead_ += static_cast<std::uint32_t>(count);
  input.bytes.at += count;
  input.missing -= count;
}

// Drops the lower half of the window. What falls out of it becomes 0, the end of a chain.
//
// Both tables are walked from end to end, 32 Ki entries for 16 KiB of input. Positions that keep counting,
// and are compared modulo the window, would spare that; but chains end at position 0 of the window, a place
// that a slide moves, and the search must end where it always did.
void LzhMatcher::Slide() {
  std::memcpy(window_.data(), window_.data() + kWindowSize, kWindowSize);
  slid_ = true;
  matchStart_ -= kWindowSize;  // wraps when there is no match; it is not looked at then
  strstart_ -= kWindowSize;
  inserted_ -= kWindowSize;
  blockStart_ -= kWindowSize;
  const auto lower = [](std::uint16_t position) {
    return static_cast<std::uint16_t>(position >= kWindowSize ? position - kWindowSize : 0);
  };
  std::transform(head_.begin(), head_.end(), head_.begin(), lower);
  std::transform(prev_.begin(), prev_.end(), prev_.begin(), lower);
}

// Comparisons run past the end of the input, and what they meet there can change a choice: in a stream that
// never filled the window these bytes are zero. After the first slide all of the window holds bytes of this
// stream.
void LzhMatcher::ClearBehindInput() {
  const std::uint32_t end = strstart_ + lookahead_;
  if (!slid_) std::memset(window_.data() + end, 0, std::min(kPadding, kWindowBytes - end));
}

// Finds a match longer than `best`, or returns `best`; of equally long ones the nearest. Candidates share the
// hash value of three bytes.
//
// The description of the format compares a candidate's byte at best.length, the one before it and the first
// one, and then the bytes in between. Any order of comparing gives the same match. Here the four bytes that
// end at best.length are one comparison: for a candidate that is to beat `best` they must agree, and for
// nearly all others they do not. With less than a first match there are only three bytes to compare, so that
// case has a loop of its own; the fourth byte that its load brings is masked out.
//
// Candidates are positions of this window, none of them 0 and none before `limit`, and `position` has
// kMinLookahead bytes or the padding behind it: all loads stay inside window_.
inline LzhMatcher::Candidate LzhMatcher::LongestMatch(std::uint32_t position, std::uint32_t candidate,
                                                      Candidate best) const {
  const std::uint8_t* const window = window_.data();
  const std::uint8_t* const scan = window + position;
  const std::uint32_t limit = position > kMaxDist ? position - kMaxDist : 0;
  std::uint32_t chain = parameters_.maxChain;
  if (best.length >= parameters_.goodLength) chain >>= 2;

  if (best.length < kMinMatch) {
    // Nearly every candidate has the three bytes that make a first match, so this rarely goes round.
    const std::uint32_t first = LoadLittle32(scan);
    while (((LoadLittle32(window + candidate) ^ first) & 0xFFFFFFU) != 0) {
      candidate = prev_[candidate & kPositionMask];
      if (candidate <= limit || --chain == 0) return best;
    }
    best = {MatchLength(scan, window + candidate), candidate};
    if (best.length == kMaxMatch) return best;
    candidate = prev_[candidate & kPositionMask];
    if (candidate <= limit || --chain == 0) return best;
  }
  // What beats best.length shares all bytes up to there. The last four of them rule out most, so they come
  // first.
  const std::uint8_t* tailWindow = window + best.length - 3;
  std::uint32_t tail = LoadLittle32(scan + best.length - 3);
  do {
    if (LoadLittle32(tailWindow + candidate) == tail) {
      const std::uint32_t length = MatchLength(scan, window + candidate);
      if (length > best.length) {
        best = {length, candidate};
        if (length == kMaxMatch) break;
        tailWindow = window + length - 3;
        tail = LoadLittle32(scan + length - 3);
      }
    }
    candidate = prev_[candidate & kPositionMask];
    --chain;
    // One branch for both ends: which of them it is cannot be foreseen, that it is one of them can at times.
  } while ((static_cast<unsigned>(candidate > limit) & static_cast<unsigned>(chain != 0)) != 0);
  return best;
}

// Positions enter the chains in runs, ahead of the search. A chain depends on nothing but the bytes: every
// position enters, whatever is matched. Between two searches an insertion would wait for the one and hold up
// the other; in a loop of their own many are under way at once. Where the chain of a position begins is then
// found in prev_, and the search need not touch head_.
//
// Reads two bytes behind `end`, where there are bytes of the stream or the padding.
void LzhMatcher::InsertUntil(std::uint32_t end) {
  const std::uint8_t* const window = window_.data();
  std::uint32_t position = inserted_;
  std::uint32_t ins_h = (std::uint32_t{window[position]} << kHashShift) ^ window[position + 1];
  for (; position < end; ++position) {
    ins_h = ((ins_h << kHashShift) ^ window[position + 2]) & kHashMask;
    prev_[position & kPositionMask] = head_[ins_h];
    head_[ins_h] = static_cast<std::uint16_t>(position);
  }
  inserted_ = end;
}

// Processes positions from strstart_ on, the last one below `stop`. False iff a flush left output pending.
//
// Lazy evaluation: a match found at one position is not taken before the next position was looked at, and is
// dropped for a literal if that one has a longer match. So the loop is always one decision behind:
// `matchAvailable` says that the byte before `position` waits for it, and prevLength and prevMatch are what
// was found there. A match that is long enough (maxLazy) is taken without looking further.
//
// The state of the search lives in locals for the length of the loop. The members are reached through `this`,
// and after every store through a byte pointer the compiler would have to load them again.
bool LzhMatcher::MatchUntil(std::uint32_t stop, LzhTrees& trees, LzhOutput& output) {
  const std::uint8_t* const window = window_.data();
  const std::uint32_t end = strstart_ + lookahead_;
  const std::uint32_t maxLazy = parameters_.maxLazy;
  std::uint32_t position = strstart_;
  std::uint32_t matchLength = matchLength_;
  std::uint32_t matchStart = matchStart_;
  bool matchAvailable = matchAvailable_;
  bool goesOn = true;
  while (position < stop && goesOn) {
    if (position >= inserted_) InsertUntil(std::min(position + kInsertAhead, end));
    const std::uint32_t candidate = prev_[position & kPositionMask];
    const std::uint32_t prevLength = matchLength;
    const std::uint32_t prevMatch = matchStart;
    matchLength = kNoMatch;
    if (candidate != 0 && prevLength < maxLazy && position - candidate <= kMaxDist) {
      const Candidate best = LongestMatch(position, candidate, {prevLength, matchStart});
      matchStart = best.start;
      matchLength = std::min(best.length, end - position);
      // kTooFar is judged behind the search: it does not let a nearer candidate take the place of a far one.
      if (matchLength == kMinMatch && position - matchStart > kTooFar) matchLength = kNoMatch;
    }

    if (prevLength >= kMinMatch && matchLength <= prevLength) {
      // The match that was waiting is as good as it gets: it begins one byte back.
      const bool check = trees.TallyMatch(position - 1 - prevMatch, prevLength);
      const std::uint32_t next = position - 1 + prevLength;
      if (check) [[unlikely]]
        goesOn = FlushIfDue(position, next, trees, output);
      position = next;
      matchAvailable = false;
      matchLength = kNoMatch;
    } else {
      // Nothing better was waiting, or nothing at all: the byte before becomes a literal, and what was found
      // here waits in its place.
      if (matchAvailable && trees.TallyLiteral(window[position - 1])) [[unlikely]] {
        goesOn = FlushIfDue(position, position, trees, output);
      }
      matchAvailable = true;
      ++position;
    }
  }

  strstart_ = position;
  lookahead_ = end - position;
  matchLength_ = matchLength;
  matchStart_ = matchStart;
  matchAvailable_ = matchAvailable;
  return goesOn;
}

// Flushes the block if its statistics at `position` ask for it; the next block begins at `nextPosition`.
// False iff output is pending then.
bool LzhMatcher::FlushIfDue(std::uint32_t position, std::uint32_t nextPosition, LzhTrees& trees,
                            LzhOutput& output) {
  if (!trees.FlushDue(static_cast<std::int64_t>(position) - blockStart_)) return true;
  trees.FlushBlock(false, output);
  blockStart_ = nextPosition;
  return !output.HasPending();
}

}  // namespace tolven::lzh

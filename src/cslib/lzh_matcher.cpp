#include "cslib/lzh_matcher.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace tolven::lzh {
namespace {

inline std::uint32_t Load32(const std::uint8_t* from) {
  std::uint32_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

inline std::uint64_t Load64(const std::uint8_t* from) {
  std::uint64_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

// Number of equal bytes, at most kMaxMatch. Reads up to 264 bytes of both.
inline std::uint32_t MatchLength(const std::uint8_t* left, const std::uint8_t* right) {
  static_assert(std::endian::native == std::endian::little, "the first byte is the lowest");
  for (std::uint32_t n = 0; n < kMaxMatch; n += 8) {
    const std::uint64_t difference = Load64(left + n) ^ Load64(right + n);
    if (difference != 0)
      return std::min(n + static_cast<std::uint32_t>(std::countr_zero(difference)) / 8, kMaxMatch);
  }
  return kMaxMatch;
}

}  // namespace

void LzhMatcher::Start(const LevelParameters& parameters) {
  parameters_ = parameters;
  strstart_ = lookahead_ = 0;
  block_start_ = 0;
  match_start_ = 0;
  match_length_ = kNoMatch;
  match_available_ = slid_ = end_of_input_ = false;
  // With the heads gone no chain leads to an old entry of prev_, so those may stay; old bytes of the window
  // are cleared where they could be seen, see ClearBehindInput.
  head_.fill(0);
}

LzhMatcher::Outcome LzhMatcher::Run(LzhInput& input, LzhTrees& trees, LzhOutput& output) {
  for (;;) {
    if (!end_of_input_ && lookahead_ < kMinLookahead && !Fill(input)) return Outcome::kInputUsedUp;
    if (lookahead_ == 0) break;
    const std::uint32_t end = strstart_ + lookahead_;
    const std::uint32_t stop = end_of_input_ ? end : end - kMinLookahead + 1;
    if (!MatchUntil(stop, trees, output)) return Outcome::kOutputFull;
  }
  if (match_available_) {
    // The final block follows in any case, so a flush that falls due here is not done.
    trees.TallyLiteral(window_[strstart_ - 1]);
    match_available_ = false;
  }
  return Outcome::kEnd;
}

// True iff positions can be processed: enough is known behind strstart_, or there is no more input.
bool LzhMatcher::Fill(LzhInput& input) {
  for (;;) {
    if (input.missing == 0) {
      end_of_input_ = true;
      ClearBehindInput();
      return true;
    }
    if (lookahead_ >= kMinLookahead) return true;
    if (input.left == 0) return false;
    FillWindow(input);
  }
}

void LzhMatcher::FillWindow(LzhInput& input) {
  if (strstart_ + lookahead_ == kWindowBytes) Slide();
  const std::uint32_t end = strstart_ + lookahead_;
  const std::size_t count = std::min<std::size_t>(kWindowBytes - end, input.left);
  std::memcpy(window_.data() + end, input.next, count);
  lookahead_ += static_cast<std::uint32_t>(count);
  input.next += count;
  input.left -= count;
  input.missing -= count;
}

// Drops the lower half of the window. What falls out of it becomes 0, the end of a chain.
void LzhMatcher::Slide() {
  std::memcpy(window_.data(), window_.data() + kWindowSize, kWindowSize);
  slid_ = true;
  match_start_ -= kWindowSize;  // wraps when there is no match; it is not looked at then
  strstart_ -= kWindowSize;
  block_start_ -= kWindowSize;
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
// hash value of three bytes. Not inlined: in the caller's loop the walk would run out of registers.
[[gnu::noinline]] LzhMatcher::Candidate LzhMatcher::LongestMatch(std::uint32_t position,
                                                                 std::uint32_t candidate,
                                                                 Candidate best) const {
  const std::uint8_t* const window = window_.data();
  const std::uint8_t* const scan = window + position;
  const std::uint32_t limit = position > kMaxDist ? position - kMaxDist : 0;
  std::uint32_t chain = parameters_.max_chain;
  if (best.length >= parameters_.good_length) chain >>= 2;

  if (best.length < kMinMatch) {
    // Nearly every candidate has the three bytes that make a first match, so this rarely goes round.
    const std::uint32_t first = Load32(scan);
    while (((Load32(window + candidate) ^ first) & 0xFFFFFFU) != 0) {
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
  const std::uint8_t* tail_window = window + best.length - 3;
  std::uint32_t tail = Load32(scan + best.length - 3);
  do {
    if (Load32(tail_window + candidate) == tail) {
      const std::uint32_t length = MatchLength(scan, window + candidate);
      if (length > best.length) {
        best = {length, candidate};
        if (length == kMaxMatch) break;
        tail_window = window + length - 3;
        tail = Load32(scan + length - 3);
      }
    }
    candidate = prev_[candidate & kPositionMask];
  } while (candidate > limit && --chain != 0);
  return best;
}

// Processes positions from strstart_ on, the last one below `stop`. False iff a flush left output pending.
bool LzhMatcher::MatchUntil(std::uint32_t stop, LzhTrees& trees, LzhOutput& output) {
  const std::uint8_t* const window = window_.data();
  const std::uint32_t end = strstart_ + lookahead_;
  const std::uint32_t max_lazy = parameters_.max_lazy;
  std::uint32_t position = strstart_;
  std::uint32_t match_length = match_length_;
  std::uint32_t match_start = match_start_;
  bool match_available = match_available_;
  bool goes_on = true;
  // The value covers three bytes only (the oldest falls out of the mask), so it can be picked up anywhere.
  std::uint32_t ins_h = (std::uint32_t{window[position]} << kHashShift) ^ window[position + 1];
  const auto next_hash = [&](std::uint32_t at) {
    return ((ins_h << kHashShift) ^ window[at + 2]) & kHashMask;
  };
  const auto insert = [&](std::uint32_t at) {
    ins_h = next_hash(at);
    const std::uint32_t previous = head_[ins_h];
    prev_[at & kPositionMask] = static_cast<std::uint16_t>(previous);
    head_[ins_h] = static_cast<std::uint16_t>(at);
    return previous;
  };

  while (position < stop && goes_on) {
    const std::uint32_t candidate = insert(position);
    // The next search starts here; its first loads would miss the nearest cache about half of the time.
    const std::uint32_t next_candidate = head_[next_hash(position + 1)];
    __builtin_prefetch(window + next_candidate);
    __builtin_prefetch(&prev_[next_candidate & kPositionMask]);
    const std::uint32_t prev_length = match_length;
    const std::uint32_t prev_match = match_start;
    match_length = kNoMatch;
    if (candidate != 0 && prev_length < max_lazy && position - candidate <= kMaxDist) {
      const Candidate best = LongestMatch(position, candidate, {prev_length, match_start});
      match_start = best.start;
      match_length = std::min(best.length, end - position);
      if (match_length == kMinMatch && position - match_start > kTooFar) match_length = kNoMatch;
    }

    if (prev_length >= kMinMatch && match_length <= prev_length) {
      const bool check = trees.TallyMatch(position - 1 - prev_match, prev_length);
      const std::uint32_t next = position - 1 + prev_length;
      if (check) [[unlikely]]
        goes_on = FlushIfDue(position, next, trees, output);
      while (++position != next) insert(position);
      match_available = false;
      match_length = kNoMatch;
    } else {
      if (match_available && trees.TallyLiteral(window[position - 1])) [[unlikely]] {
        goes_on = FlushIfDue(position, position, trees, output);
      }
      match_available = true;
      ++position;
    }
  }

  strstart_ = position;
  lookahead_ = end - position;
  match_length_ = match_length;
  match_start_ = match_start;
  match_available_ = match_available;
  return goes_on;
}

// Flushes the block if its statistics at `position` ask for it; the next block begins at `next_position`.
// False iff output is pending then.
bool LzhMatcher::FlushIfDue(std::uint32_t position, std::uint32_t next_position, LzhTrees& trees,
                            LzhOutput& output) {
  if (!trees.FlushDue(static_cast<std::int64_t>(position) - block_start_)) return true;
  trees.FlushBlock(false, output);
  block_start_ = next_position;
  return !output.HasPending();
}

}  // namespace tolven::lzh

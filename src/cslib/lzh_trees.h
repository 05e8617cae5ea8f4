#pragma once

// The pending block: the literals and matches found so far, their frequencies, and how they become a block of
// Huffman codes.
//
// Where a block ends is fixed (16383 items, or above level 2 an estimate every 4096), and so are its codes
// and its type: the smaller one of fixed and dynamic, by totals that are slightly wrong and must stay so.
//
// Tallying is done for every item of a stream and sending once more, so both are kept free of decisions. An
// item is tallied as one store and one or two counts, and becomes one 32-bit record that sends itself by two
// look-ups, literal or match alike. When to ask about a flush is a comparison with a pointer that was
// computed before.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/bytes.h"
#include "cslib/lzh_format.h"
#include "cslib/lzh_output.h"
#include "cslib/lzh_trees_builder.h"

namespace tolven::lzh {

// A tallied literal or match in the form in which it is sent: bits 0..8 the index of its literal/length code
// with extra bits (a literal as it stands, a match 256 + length - 3), bits 9..13 the distance code, bits 14..
// the extra bits of the distance. One record for both kinds lets the sending loop run without a branch.
struct LzhItem {
  static constexpr int kDistShift = 9;
  static constexpr int kExtraShift = 14;
  static constexpr std::uint32_t kNoDist = 30;  // the distance code of a literal: sends nothing

  static std::uint32_t Literal(std::uint8_t byte) { return kNoDist << kDistShift | byte; }
  static std::uint32_t Match(std::uint32_t lc, std::uint32_t dist_code, std::uint32_t extra) {
    return extra << kExtraShift | dist_code << kDistShift | 256U | lc;
  }
};

// A block as it is made and sent, with names of the format's description where it has any:
//
//   TallyLiteral, TallyMatch     items_ and the frequencies of the two alphabets
//   FlushDue                     now and then: is this a good place to end the block?
//   FlushBlock
//     BuildTrees                 code lengths of the two alphabets; then ScanTree cuts them into runs, and
//     the
//                                runs get a code of their own
//     opt_len, static_len        what the block takes with its own codes and with the fixed ones
//     SendAllTrees               only for a dynamic block
//     CompressBlock              the items
//     InitBlock                  all frequencies 0 but that of the end of the block, which occurs once
class LzhTrees {
 public:
  // A block is full one item before the buffer is: the last item at the end of input may still follow. More
  // would not make streams smaller: the codes of a block fit it less the longer it gets.
  static constexpr std::size_t kItemBufferSize = 16384;
  static constexpr std::size_t kMaxItems = kItemBufferSize - 1;

  LzhTrees() = default;
  LzhTrees(const LzhTrees&) = delete;  // points into itself
  LzhTrees& operator=(const LzhTrees&) = delete;

  // A new stream of the given level (1..9): nothing tallied, and of bits only the preamble held.
  void Start(int level);

  // Adds a literal, or a match of `length` (3..258) at `distance` (1..32768). True iff FlushDue must be
  // asked.
  bool TallyLiteral(std::uint8_t byte) {
    *nextItem_++ = LzhItem::Literal(byte);
    ++litLen_.frequency[byte];
    return nextItem_ == checkAt_;
  }
  bool TallyMatch(std::uint32_t distance, std::uint32_t length) {
    const std::uint32_t lc = length - kMinMatch;
    const std::uint32_t dist = distance - 1;
    const std::uint32_t code = kCodeMaps.dist_code[dist < 256 ? dist : 256 + (dist >> 7)];
    *nextItem_++ = LzhItem::Match(lc, code, dist - kCodeMaps.base_dist[code]);
    ++litLen_.frequency[kLiterals + 1U + kCodeMaps.length_code[lc]];
    ++dist_.frequency[code];
    return nextItem_ == checkAt_;
  }

  // True iff the block should be flushed now: it is full, or (above level 2, every 4096 items) it looks as if
  // its statistics paid off. `blockBytes`: input bytes from the start of the block to the current position.
  bool FlushDue(std::int64_t blockBytes);

  // Sends the block, as the stream's last one with all that follows it if `final`, and starts the next one.
  // Nothing may be pending in `output`.
  void FlushBlock(bool final, LzhOutput& output);

 private:
  // Codes with their extra bits merged, one row an item. `litLen`: bits, and their count from bit 24 on.
  // `dist`: the code, from bit 16 on its length, from bit 24 on its length with the extra bits behind it.
  struct SendTable {
    std::array<std::uint32_t, 512> litLen;
    std::array<std::uint32_t, 32> dist;
    std::uint32_t endBlock;
  };
  // One step of the run-length coded lengths of the two trees: the runs are counted before the code they are
  // sent in is known, so they are kept.
  struct LengthRun {
    std::uint8_t symbol;
    std::uint8_t extra;
  };

  static constexpr SendTable MakeSendTable(const std::uint8_t* litLenLength, const std::uint16_t* litLenCode,
                                           const std::uint8_t* distLength, const std::uint16_t* dist_code);
  static const SendTable kFixedSendTable;

  void InitBlock();
  void BuildTrees();
  void ScanTree(const std::uint8_t* length, int maxCode);
  void AddRun(std::uint8_t length, std::uint32_t count, bool repeatsPrevious);
  std::size_t BlockBits(bool dynamic) const;
  void SendAllTrees(LzhBitWriter& bits) const;
  void CompressBlock(const SendTable& table, LzhBitWriter& bits) const;

  bool estimates_ = false;  // the level has the early flush

  Tree<kLitLenCodes> litLen_;
  Tree<kDistCodes> dist_;
  Tree<kBitLengthCodes> bitLength_;
  int maxBlIndex_ = 0;
  std::array<LengthRun, kLitLenCodes + kDistCodes> runs_;
  std::size_t runCount_ = 0;
  LzhTreeBuilder builder_;
  SendTable sendTable_;

  // Bits of the last block that do not fill a pair of bytes yet; in front of the first block, the preamble.
  std::uint64_t bi_buf_ = 0;
  int bi_valid_ = 0;

  // The block, as many items as there are before nextItem_. checkAt_ is where a flush is next asked about.
  std::array<std::uint32_t, kItemBufferSize> items_;
  std::uint32_t* nextItem_ = items_.data();
  const std::uint32_t* checkAt_ = items_.data();
};

}  // namespace tolven::lzh

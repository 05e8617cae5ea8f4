#pragma once

// The pending block: the literals and matches found so far, their frequencies, and how they become a block of
// Huffman codes.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/lzh_bit_writer.h"
#include "cslib/lzh_compress_output.h"
#include "cslib/lzh_format.h"
#include "cslib/lzh_trees_builder.h"
#include "cslib/lzh_trees_static.h"

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

class LzhTrees {
 public:
  // A block is full one item before the buffer is: the last item at the end of input may still follow.
  static constexpr std::size_t kItemBufferSize = 16384;
  static constexpr std::size_t kMaxItems = kItemBufferSize - 1;

  LzhTrees() = default;
  LzhTrees(const LzhTrees&) = delete;  // points into itself
  LzhTrees& operator=(const LzhTrees&) = delete;

  // A new stream of the given level (1..9): nothing tallied, no bits held.
  void Start(int level);

  // Puts bits in front of the first block. At most 16 in a stream, so none leaves the register.
  void SendPreamble(std::uint32_t value, int count);

  // Adds a literal, or a match of `length` (3..258) at `distance` (1..32768). True iff FlushDue must be
  // asked.
  bool TallyLiteral(std::uint8_t byte) {
    *next_item_++ = LzhItem::Literal(byte);
    ++litlen_.frequency[byte];
    return next_item_ == check_at_;
  }
  bool TallyMatch(std::uint32_t distance, std::uint32_t length) {
    const std::uint32_t lc = length - kMinMatch;
    const std::uint32_t dist = distance - 1;
    const std::uint32_t code = kCodeMaps.dist_code[dist < 256 ? dist : 256 + (dist >> 7)];
    *next_item_++ = LzhItem::Match(lc, code, dist - kCodeMaps.base_dist[code]);
    ++litlen_.frequency[kLiterals + 1U + kCodeMaps.length_code[lc]];
    ++dist_.frequency[code];
    return next_item_ == check_at_;
  }

  // True iff the block should be flushed now: it is full, or (above level 2, every 4096 items) it looks as if
  // its statistics paid off. `block_bytes`: input bytes from the start of the block to the current position.
  bool FlushDue(std::int64_t block_bytes);

  // Sends the block, as the stream's last one with all that follows it if `final`, and starts the next one.
  // Nothing may be pending in `output`.
  void FlushBlock(bool final, LzhOutput& output);

 private:
  // Codes with their extra bits merged, one row an item. `litlen`: bits, and their count from bit 24 on.
  // `dist`: the code, from bit 16 on its length, from bit 24 on its length with the extra bits behind it.
  struct SendTable {
    std::array<std::uint32_t, 512> litlen;
    std::array<std::uint32_t, 32> dist;
    std::uint32_t end_block;
  };
  // One step of the run-length coded lengths of the two trees.
  struct LengthRun {
    std::uint8_t symbol;
    std::uint8_t extra;
  };

  static constexpr SendTable MakeSendTable(const std::uint8_t* litlen_length,
                                           const std::uint16_t* litlen_code, const std::uint8_t* dist_length,
                                           const std::uint16_t* dist_code);
  static const SendTable kFixedSendTable;

  void InitBlock();
  void BuildTrees();
  void ScanTree(const std::uint8_t* length, int max_code);
  void AddRun(std::uint8_t length, std::uint32_t count, bool repeats_previous);
  std::size_t BlockBits(bool dynamic) const;
  void SendAllTrees(LzhBitWriter& bits) const;
  void CompressBlock(const SendTable& table, LzhBitWriter& bits) const;

  bool estimates_ = false;  // the level has the early flush

  Tree<kLitLenCodes> litlen_;
  Tree<kDistCodes> dist_;
  Tree<kBitLengthCodes> bit_length_;
  int max_bl_index_ = 0;
  std::array<LengthRun, kLitLenCodes + kDistCodes> runs_;
  std::size_t run_count_ = 0;
  LzhTreeBuilder builder_;
  SendTable send_table_;

  // Bits of the last block that do not fill a pair of bytes yet.
  std::uint64_t bi_buf_ = 0;
  int bi_valid_ = 0;

  std::array<std::uint32_t, kItemBufferSize> items_;
  std::uint32_t* next_item_ = items_.data();
  const std::uint32_t* check_at_ = items_.data();
};

}  // namespace tolven::lzh

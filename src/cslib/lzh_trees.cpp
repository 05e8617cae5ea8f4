#include "cslib/lzh_trees.h"

#include <algorithm>

namespace tolven::lzh {
namespace {

constexpr TreeDescriptor kLitLenDescriptor = {kFixedTrees.litLenLength.data(), CsExtraLenBits1.data(),
                                              kLiterals + 1, kLitLenCodes, kMaxCodeBits};
// The extra bits are those of the lengths. That weighs distances wrongly, but only in the two totals that
// decide between fixed and dynamic codes, and existing streams were made with it: it must stay. Both totals
// are off by the same number of bits, so the choice would rarely be another one; rarely is too often for
// streams that are compared. Code 29 even has the 99 that marks a length which does not exist, but no
// distance is that long.
constexpr TreeDescriptor kDistDescriptor = {kFixedTrees.distLength.data(), CsExtraLenBits1.data(), 0,
                                            kDistCodes, kMaxCodeBits};
constexpr TreeDescriptor kBitLengthDescriptor = {nullptr, extra_blbits.data(), 0, kBitLengthCodes,
                                                 kMaxBitLengthBits};

constexpr int kBlockHeaderBits = 3;
constexpr int kTreeCountBits = 5 + 5 + 4;
constexpr std::size_t kEstimateInterval = 4096;

// The largest block there can be: every item takes the longest literal/length code with the most extra bits
// and the longest distance code with the most extra bits, and the two trees are sent without any run.
//
// Behind the codes of a final block: the fill of the last byte and the zero byte.
constexpr std::size_t kFinalBytes = 3;
constexpr std::size_t kMaxItemBits = kMaxCodeBits + 5 + kMaxCodeBits + 13;
constexpr std::size_t kMaxTreeBits =
    kTreeCountBits + 3 * kBitLengthCodes + (kLitLenCodes + kDistCodes) * (kMaxBitLengthBits + 7);
static_assert((LzhTrees::kItemBufferSize * kMaxItemBits + kMaxTreeBits + kBlockHeaderBits + kMaxCodeBits) /
                          8 +
                      1 + kFinalBytes + LzhBitWriter::kSlack <
                  LzhOutput::kOverflowSize,
              "the largest block fits the overflow buffer");
static_assert(LzhBitWriter::kMaxPut >= kMaxItemBits, "one spill an item is enough");

}  // namespace

// Code and extra bits of each literal and of each of the 256 lengths, so that a length is sent by one
// look-up; and the codes of the distances, whose extra bits stand in the item.
constexpr LzhTrees::SendTable LzhTrees::MakeSendTable(const std::uint8_t* litLenLength,
                                                      const std::uint16_t* litLenCode,
                                                      const std::uint8_t* distLength,
                                                      const std::uint16_t* dist_code) {
  SendTable table{};
  for (std::uint32_t n = 0; n < 256; ++n) {
    table.litLen[n] = litLenCode[n] | static_cast<std::uint32_t>(litLenLength[n]) << 24;
  }
  for (std::uint32_t lc = 0; lc < 256; ++lc) {
    const std::uint32_t code = kCodeMaps.length_code[lc];
    const std::uint32_t length = litLenLength[kLiterals + 1U + code];
    const std::uint32_t extraBits = CsExtraLenBits1[code];
    const std::uint32_t extra = extraBits != 0 ? lc - kCodeMaps.base_length[code] : 0;
    table.litLen[256 + lc] = litLenCode[kLiterals + 1U + code] | extra << length | (length + extraBits) << 24;
  }
  for (std::uint32_t code = 0; code < kDistCodes; ++code) {
    const std::uint32_t length = distLength[code];
    table.dist[code] = dist_code[code] | length << 16 | (length + CsExtraDistBits1[code]) << 24;
  }
  table.dist[LzhItem::kNoDist] = 0;
  table.endBlock = litLenCode[kEndBlock] | static_cast<std::uint32_t>(litLenLength[kEndBlock]) << 24;
  return table;
}

constexpr LzhTrees::SendTable LzhTrees::kFixedSendTable =
    MakeSendTable(kFixedTrees.litLenLength.data(), kFixedTrees.litLenCode.data(),
                  kFixedTrees.distLength.data(), kFixedTrees.dist_code.data());

// Levels 1 and 2 take blocks as long as they get, which spares them the estimate.
//
// The preamble is a number r and r bits that mean nothing. Older writers drew them at random, which protected
// nothing and made two archives of the same files differ; r is always 0 here. It waits in the register for
// the first block, since there is no place in the output yet, and the bit writer relies on it: it needs a bit
// held.
void LzhTrees::Start(int level) {
  estimates_ = level > 2;
  bi_buf_ = 0;
  bi_valid_ = kPreambleCountBits;
  InitBlock();
}

// Items and runs are not cleared: their counts are what says how many there are.
void LzhTrees::InitBlock() {
  litLen_.frequency.fill(0);
  dist_.frequency.fill(0);
  bitLength_.frequency.fill(0);
  litLen_.frequency[kEndBlock] = 1;
  builder_.opt_len = builder_.static_len = 0;
  nextItem_ = items_.data();
  checkAt_ = items_.data() + (estimates_ ? kEstimateInterval : kMaxItems);
}

// The estimate takes 8 bits for an item and 5 with the extra bits for a distance. If half of the items are
// literals and the block would come out at less than half of its input, its codes fit the data well, and
// fresh ones may fit what follows better.
bool LzhTrees::FlushDue(std::int64_t blockBytes) {
  const auto lastLit = static_cast<std::size_t>(nextItem_ - items_.data());
  if (lastLit >= kMaxItems) return true;
  checkAt_ = items_.data() + std::min(lastLit + kEstimateInterval, kMaxItems);

  std::size_t lastDist = 0;
  std::size_t outBits = lastLit * 8;
  for (std::size_t code = 0; code < kDistCodes; ++code) {
    lastDist += dist_.frequency[code];
    outBits += std::size_t{dist_.frequency[code]} * (5U + CsExtraDistBits1[code]);
  }
  return lastDist < lastLit / 2 && static_cast<std::int64_t>(outBits / 8) < blockBytes / 2;
}

// A block goes out in one piece, to a place that holds it whatever it comes to: its size in bits is known as
// soon as its codes are. `+ 10` stands for the three bits of the block header and rounding up; it is part of
// the choice between the two types.
void LzhTrees::FlushBlock(bool final, LzhOutput& output) {
  BuildTrees();
  const bool dynamic = (builder_.opt_len + 10) >> 3 < (builder_.static_len + 10) >> 3;
  const std::size_t blockBits = static_cast<std::size_t>(bi_valid_ + kBlockHeaderBits) + BlockBits(dynamic);
  const std::size_t maxBytes = blockBits / 8 + 1 + kFinalBytes + LzhBitWriter::kSlack;

  LzhBitWriter bits(output.Reserve(maxBytes), bi_buf_, bi_valid_);
  bits.SendBits(static_cast<std::uint32_t>((dynamic ? kBlockDynamic : kBlockFixed) << 1) + (final ? 1U : 0U),
                kBlockHeaderBits);
  if (dynamic) {
    SendAllTrees(bits);
    sendTable_ =
        MakeSendTable(litLen_.length.data(), litLen_.code.data(), dist_.length.data(), dist_.code.data());
    CompressBlock(sendTable_, bits);
  } else {
    CompressBlock(kFixedSendTable, bits);
  }
  InitBlock();
  if (final) {
    bits.Align();
    bits.PutByte(0);
  }
  output.Commit(bits.Position());
  bi_buf_ = bits.BiBuf();
  bi_valid_ = bits.BiValid();
}

// In this order: the lengths of the first two trees are what the third one codes. Of its own lengths only
// those up to the last one in use are sent, in an order that puts the rare ones last, and at least four of
// them.
void LzhTrees::BuildTrees() {
  litLen_.maxCode = builder_.BuildTree(kLitLenDescriptor, litLen_.frequency.data(), litLen_.length.data(),
                                       litLen_.code.data());
  dist_.maxCode =
      builder_.BuildTree(kDistDescriptor, dist_.frequency.data(), dist_.length.data(), dist_.code.data());
  runCount_ = 0;
  ScanTree(litLen_.length.data(), litLen_.maxCode);
  ScanTree(dist_.length.data(), dist_.maxCode);
  bitLength_.maxCode = builder_.BuildTree(kBitLengthDescriptor, bitLength_.frequency.data(),
                                          bitLength_.length.data(), bitLength_.code.data());
  maxBlIndex_ = kBitLengthCodes - 1;
  while (maxBlIndex_ > 3 && bitLength_.length[bl_order[static_cast<std::size_t>(maxBlIndex_)]] == 0) {
    --maxBlIndex_;
  }
  builder_.opt_len += static_cast<std::uint32_t>(3 * (maxBlIndex_ + 1) + kTreeCountBits);
}

// Cuts the lengths of a tree into runs. The cuts are part of the format's fixed choices: a run ends at 138
// zeros, at 6 repetitions of the length before it, or, when it starts with a new length, at 7 of them.
void LzhTrees::ScanTree(const std::uint8_t* length, int maxCode) {
  int previous = -1;
  for (int n = 0; n <= maxCode;) {
    const std::uint8_t current = length[n];
    const bool repeats = current != 0 && current == previous;
    const std::uint32_t longest = current == 0 ? 138 : repeats ? 6 : 7;
    std::uint32_t count = 1;
    while (count < longest && n + static_cast<int>(count) <= maxCode &&
           length[n + static_cast<int>(count)] == current) {
      ++count;
    }
    AddRun(current, count, repeats);
    n += static_cast<int>(count);
    previous = current;
  }
}

// A new length is sent once before it can be repeated. Runs too short for a repeat code go as they are.
void LzhTrees::AddRun(std::uint8_t length, std::uint32_t count, bool repeatsPrevious) {
  const auto add = [this](int symbol, std::uint32_t extra) {
    runs_[runCount_++] = {static_cast<std::uint8_t>(symbol), static_cast<std::uint8_t>(extra)};
    ++bitLength_.frequency[static_cast<std::size_t>(symbol)];
  };
  const std::uint32_t shortest = length != 0 && !repeatsPrevious ? 4 : 3;
  if (count < shortest) {
    for (; count != 0; --count) add(length, 0);
  } else if (length != 0) {
    if (!repeatsPrevious) {
      add(length, 0);
      --count;
    }
    add(kRepeatPrevious, count - 3);
  } else if (count <= 10) {
    add(kRepeatZero, count - 3);
  } else {
    add(kRepeatZeroLong, count - 11);
  }
}

// What trees and data really take: the totals of the builder count the wrong extra bits for distances. Here
// they are exchanged for the right ones, since this number decides where the block goes and must not be too
// small. In unsigned arithmetic the difference may pass through values below zero; the sum does not.
std::size_t LzhTrees::BlockBits(bool dynamic) const {
  std::size_t bits = dynamic ? builder_.opt_len : builder_.static_len;
  for (std::size_t code = 0; code < kDistCodes; ++code) {
    bits += std::size_t{dist_.frequency[code]} * CsExtraDistBits1[code];
    bits -= std::size_t{dist_.frequency[code]} * CsExtraLenBits1[code];
  }
  return bits;
}

// The counts are sent less their smallest values, as the format has it. The literal alphabet always reaches
// up to the end of the block, so its count is at least 257; the distances have at least two codes, forced in
// if need be.
void LzhTrees::SendAllTrees(LzhBitWriter& bits) const {
  bits.SendBits(static_cast<std::uint32_t>(litLen_.maxCode + 1 - 257), 5);
  bits.SendBits(static_cast<std::uint32_t>(dist_.maxCode + 1 - 1), 5);
  bits.SendBits(static_cast<std::uint32_t>(maxBlIndex_ + 1 - 4), 4);
  for (std::size_t n = 0; n <= static_cast<std::size_t>(maxBlIndex_); ++n) {
    bits.SendBits(bitLength_.length[bl_order[n]], 3);
  }
  for (std::size_t n = 0; n < runCount_; ++n) {
    const std::size_t symbol = runs_[n].symbol;
    bits.Put(bitLength_.code[symbol], bitLength_.length[symbol]);
    bits.SendBits(runs_[n].extra, extra_blbits[symbol]);
  }
}

// One item a round, without a branch: a literal has a "distance" whose code is 0 bits long. An item is 48
// bits at most, which is what the register takes between two spills.
void LzhTrees::CompressBlock(const SendTable& table, LzhBitWriter& bits) const {
  LzhBitWriter local = bits;  // in registers: its bytes may alias nothing of the loop then
  const std::uint32_t* const end = nextItem_;
  for (const std::uint32_t* item = items_.data(); item != end; ++item) {
    const std::uint32_t litLen = table.litLen[*item & 511U];
    const std::uint32_t dist = table.dist[(*item >> LzhItem::kDistShift) & 31U];
    const std::uint64_t extra = *item >> LzhItem::kExtraShift;
    local.Put(litLen & 0xFFFFFFU, static_cast<int>(litLen >> 24));
    local.Put((dist & 0xFFFFU) | extra << ((dist >> 16) & 0xFFU), static_cast<int>(dist >> 24));
    local.Spill();
  }
  local.SendBits(table.endBlock & 0xFFFFFFU, static_cast<int>(table.endBlock >> 24));
  bits = local;
}

}  // namespace tolven::lzh

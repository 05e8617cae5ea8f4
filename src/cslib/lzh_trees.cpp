#include "cslib/lzh_trees.h"

#include <algorithm>

namespace tolven::lzh {
namespace {

constexpr TreeDescriptor kLitLenDescriptor = {kFixedTrees.litlen_length.data(), CsExtraLenBits1.data(),
                                              kLiterals + 1, kLitLenCodes, kMaxCodeBits};
// The extra bits are those of the lengths. That weighs distances wrongly, but only in the two totals that
// decide between fixed and dynamic codes, and existing streams were made with it: it must stay.
constexpr TreeDescriptor kDistDescriptor = {kFixedTrees.dist_length.data(), CsExtraLenBits1.data(), 0,
                                            kDistCodes, kMaxCodeBits};
constexpr TreeDescriptor kBitLengthDescriptor = {nullptr, extra_blbits.data(), 0, kBitLengthCodes,
                                                 kMaxBitLengthBits};

constexpr int kBlockHeaderBits = 3;
constexpr int kTreeCountBits = 5 + 5 + 4;
constexpr std::size_t kEstimateInterval = 4096;

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

constexpr LzhTrees::SendTable LzhTrees::MakeSendTable(const std::uint8_t* litlen_length,
                                                      const std::uint16_t* litlen_code,
                                                      const std::uint8_t* dist_length,
                                                      const std::uint16_t* dist_code) {
  SendTable table{};
  for (std::uint32_t n = 0; n < 256; ++n) {
    table.litlen[n] = litlen_code[n] | static_cast<std::uint32_t>(litlen_length[n]) << 24;
  }
  for (std::uint32_t lc = 0; lc < 256; ++lc) {
    const std::uint32_t code = kCodeMaps.length_code[lc];
    const std::uint32_t length = litlen_length[kLiterals + 1U + code];
    const std::uint32_t extra_bits = CsExtraLenBits1[code];
    const std::uint32_t extra = extra_bits != 0 ? lc - kCodeMaps.base_length[code] : 0;
    table.litlen[256 + lc] =
        litlen_code[kLiterals + 1U + code] | extra << length | (length + extra_bits) << 24;
  }
  for (std::uint32_t code = 0; code < kDistCodes; ++code) {
    const std::uint32_t length = dist_length[code];
    table.dist[code] = dist_code[code] | length << 16 | (length + CsExtraDistBits1[code]) << 24;
  }
  table.dist[LzhItem::kNoDist] = 0;
  table.end_block = litlen_code[kEndBlock] | static_cast<std::uint32_t>(litlen_length[kEndBlock]) << 24;
  return table;
}

constexpr LzhTrees::SendTable LzhTrees::kFixedSendTable =
    MakeSendTable(kFixedTrees.litlen_length.data(), kFixedTrees.litlen_code.data(),
                  kFixedTrees.dist_length.data(), kFixedTrees.dist_code.data());

void LzhTrees::Start(int level) {
  estimates_ = level > 2;
  bi_buf_ = 0;
  bi_valid_ = 0;
  InitBlock();
}

void LzhTrees::InitBlock() {
  litlen_.frequency.fill(0);
  dist_.frequency.fill(0);
  bit_length_.frequency.fill(0);
  litlen_.frequency[kEndBlock] = 1;
  builder_.opt_len = builder_.static_len = 0;
  next_item_ = items_.data();
  check_at_ = items_.data() + (estimates_ ? kEstimateInterval : kMaxItems);
}

void LzhTrees::SendPreamble(std::uint32_t value, int count) {
  bi_buf_ |= static_cast<std::uint64_t>(value) << bi_valid_;
  bi_valid_ += count;
}

bool LzhTrees::FlushDue(std::int64_t block_bytes) {
  const auto last_lit = static_cast<std::size_t>(next_item_ - items_.data());
  if (last_lit >= kMaxItems) return true;
  check_at_ = items_.data() + std::min(last_lit + kEstimateInterval, kMaxItems);

  std::size_t last_dist = 0;
  std::size_t out_bits = last_lit * 8;
  for (std::size_t code = 0; code < kDistCodes; ++code) {
    last_dist += dist_.frequency[code];
    out_bits += std::size_t{dist_.frequency[code]} * (5U + CsExtraDistBits1[code]);
  }
  return last_dist < last_lit / 2 && static_cast<std::int64_t>(out_bits / 8) < block_bytes / 2;
}

void LzhTrees::FlushBlock(bool final, LzhOutput& output) {
  BuildTrees();
  const bool dynamic = (builder_.opt_len + 10) >> 3 < (builder_.static_len + 10) >> 3;
  const std::size_t block_bits = static_cast<std::size_t>(bi_valid_ + kBlockHeaderBits) + BlockBits(dynamic);
  const std::size_t max_bytes = block_bits / 8 + 1 + kFinalBytes + LzhBitWriter::kSlack;

  LzhBitWriter bits(output.Reserve(max_bytes), bi_buf_, bi_valid_);
  bits.SendBits(static_cast<std::uint32_t>((dynamic ? kBlockDynamic : kBlockFixed) << 1) + (final ? 1U : 0U),
                kBlockHeaderBits);
  if (dynamic) {
    SendAllTrees(bits);
    send_table_ =
        MakeSendTable(litlen_.length.data(), litlen_.code.data(), dist_.length.data(), dist_.code.data());
    CompressBlock(send_table_, bits);
  } else {
    CompressBlock(kFixedSendTable, bits);
  }
  InitBlock();
  if (final) {
    bits.Align();
    bits.PutByte(0);
  }
  output.Commit(bits.position());
  bi_buf_ = bits.bi_buf();
  bi_valid_ = bits.bi_valid();
}

void LzhTrees::BuildTrees() {
  litlen_.max_code = builder_.BuildTree(kLitLenDescriptor, litlen_.frequency.data(), litlen_.length.data(),
                                        litlen_.code.data());
  dist_.max_code =
      builder_.BuildTree(kDistDescriptor, dist_.frequency.data(), dist_.length.data(), dist_.code.data());
  run_count_ = 0;
  ScanTree(litlen_.length.data(), litlen_.max_code);
  ScanTree(dist_.length.data(), dist_.max_code);
  bit_length_.max_code = builder_.BuildTree(kBitLengthDescriptor, bit_length_.frequency.data(),
                                            bit_length_.length.data(), bit_length_.code.data());
  max_bl_index_ = kBitLengthCodes - 1;
  while (max_bl_index_ > 3 && bit_length_.length[bl_order[static_cast<std::size_t>(max_bl_index_)]] == 0) {
    --max_bl_index_;
  }
  builder_.opt_len += static_cast<std::uint32_t>(3 * (max_bl_index_ + 1) + kTreeCountBits);
}

// Cuts the lengths of a tree into runs. The cuts are part of the format's fixed choices: a run ends at 138
// zeros, at 6 repetitions of the length before it, or, when it starts with a new length, at 7 of them.
void LzhTrees::ScanTree(const std::uint8_t* length, int max_code) {
  int previous = -1;
  for (int n = 0; n <= max_code;) {
    const std::uint8_t current = length[n];
    const bool repeats = current != 0 && current == previous;
    const std::uint32_t longest = current == 0 ? 138 : repeats ? 6 : 7;
    std::uint32_t count = 1;
    while (count < longest && n + static_cast<int>(count) <= max_code &&
           length[n + static_cast<int>(count)] == current) {
      ++count;
    }
    AddRun(current, count, repeats);
    n += static_cast<int>(count);
    previous = current;
  }
}

void LzhTrees::AddRun(std::uint8_t length, std::uint32_t count, bool repeats_previous) {
  const auto add = [this](int symbol, std::uint32_t extra) {
    runs_[run_count_++] = {static_cast<std::uint8_t>(symbol), static_cast<std::uint8_t>(extra)};
    ++bit_length_.frequency[static_cast<std::size_t>(symbol)];
  };
  const std::uint32_t shortest = length != 0 && !repeats_previous ? 4 : 3;
  if (count < shortest) {
    for (; count != 0; --count) add(length, 0);
  } else if (length != 0) {
    if (!repeats_previous) {
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

// What trees and data really take: the totals of the builder count the wrong extra bits for distances.
std::size_t LzhTrees::BlockBits(bool dynamic) const {
  std::size_t bits = dynamic ? builder_.opt_len : builder_.static_len;
  for (std::size_t code = 0; code < kDistCodes; ++code) {
    bits += std::size_t{dist_.frequency[code]} * CsExtraDistBits1[code];
    bits -= std::size_t{dist_.frequency[code]} * CsExtraLenBits1[code];
  }
  return bits;
}

void LzhTrees::SendAllTrees(LzhBitWriter& bits) const {
  bits.SendBits(static_cast<std::uint32_t>(litlen_.max_code + 1 - 257), 5);
  bits.SendBits(static_cast<std::uint32_t>(dist_.max_code + 1 - 1), 5);
  bits.SendBits(static_cast<std::uint32_t>(max_bl_index_ + 1 - 4), 4);
  for (std::size_t n = 0; n <= static_cast<std::size_t>(max_bl_index_); ++n) {
    bits.SendBits(bit_length_.length[bl_order[n]], 3);
  }
  for (std::size_t n = 0; n < run_count_; ++n) {
    const std::size_t symbol = runs_[n].symbol;
    bits.Put(bit_length_.code[symbol], bit_length_.length[symbol]);
    bits.SendBits(runs_[n].extra, extra_blbits[symbol]);
  }
}

void LzhTrees::CompressBlock(const SendTable& table, LzhBitWriter& bits) const {
  LzhBitWriter local = bits;  // in registers: its bytes may alias nothing of the loop then
  const std::uint32_t* const end = next_item_;
  for (const std::uint32_t* item = items_.data(); item != end; ++item) {
    const std::uint32_t litlen = table.litlen[*item & 511U];
    const std::uint32_t dist = table.dist[(*item >> LzhItem::kDistShift) & 31U];
    const std::uint64_t extra = *item >> LzhItem::kExtraShift;
    local.Put(litlen & 0xFFFFFFU, static_cast<int>(litlen >> 24));
    local.Put((dist & 0xFFFFU) | extra << ((dist >> 16) & 0xFFU), static_cast<int>(dist >> 24));
    local.Spill();
  }
  local.SendBits(table.end_block & 0xFFFFFFU, static_cast<int>(table.end_block >> 24));
  bits = local;
}

}  // namespace tolven::lzh

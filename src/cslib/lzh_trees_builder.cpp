#include "cslib/lzh_trees_builder.h"

#include <algorithm>

#include "cslib/lzh_format.h"

namespace tolven::lzh {
namespace {

constexpr std::uint64_t HeapEntry(std::uint64_t frequency, std::uint64_t depth, std::size_t node) {
  return frequency << 32 | depth << 16 | node;
}
constexpr std::size_t NodeOf(std::uint64_t entry) {
  return entry & 0xFFFF;
}
constexpr std::uint64_t DepthOf(std::uint64_t entry) {
  return (entry >> 16) & 0xFFFF;
}
constexpr std::uint64_t FrequencyOf(std::uint64_t entry) {
  return entry >> 32;
}
// On equal frequency and depth the left one counts as the smaller. The node itself never decides: which of
// two equal ones comes first follows from where the heap has them.
//
// Filling up the lower bits of one side compares the upper ones, with one instruction less than shifting
// both.
constexpr bool Smaller(std::uint64_t left, std::uint64_t right) {
  return left <= (right | 0xFFFF);
}

}  // namespace

// The steps of the reference coder, one function each, in its order. Lengths of symbols that do not occur are
// 0, which CollectSymbols sees to; codes only exist where lengths do.
int LzhTreeBuilder::BuildTree(const TreeDescriptor& descriptor, std::uint16_t* frequency,
                              std::uint8_t* length, std::uint16_t* code) {
  const int maxCode = CollectSymbols(descriptor, frequency, length);
  for (std::size_t n = heapLength_ / 2; n >= 1; --n) SiftDown(n);
  JoinNodes(descriptor.elements);
  GenBitLengths(descriptor, frequency, length, maxCode);
  GenCodes(length, static_cast<std::size_t>(maxCode) + 1, bl_count_, code);
  return maxCode;
}

// Fills the heap (entries 1..heapLength_, not yet ordered) with the symbols in use.
int LzhTreeBuilder::CollectSymbols(const TreeDescriptor& descriptor, std::uint16_t* frequency,
                                   std::uint8_t* length) {
  int maxCode = -1;
  heapLength_ = 0;
  for (int n = 0; n < descriptor.elements; ++n) {
    if (frequency[n] != 0) {
      maxCode = n;
      heap_[++heapLength_] = HeapEntry(frequency[n], 0, static_cast<std::size_t>(n));
    } else {
      length[n] = 0;
    }
  }
  // A reader wants at least two codes, so unused ones are forced in. They never occur in the data: their one
  // bit is taken off the totals in advance, which may take them below zero for a moment; they are unsigned,
  // and what GenBitLengths adds brings them back.
  while (heapLength_ < 2) {
    const int node = maxCode < 2 ? ++maxCode : 0;
    frequency[node] = 1;
    heap_[++heapLength_] = HeapEntry(1, 0, static_cast<std::size_t>(node));
    --opt_len;
    if (descriptor.fixedLength != nullptr) static_len -= descriptor.fixedLength[node];
  }
  return maxCode;
}

// Lets the entry at `hole` sink until both entries below it are not smaller. Which of equal entries moves is
// part of the fixed choices: the right child before the left one, and neither of them before the sinking one.
void LzhTreeBuilder::SiftDown(std::size_t hole) {
  const std::uint64_t sinking = heap_[hole];
  // Behind the last entry, larger than any: a last child without a sibling needs no question, and which child
  // is the smaller one, a toss-up, is not a branch.
  heap_[heapLength_ + 1] = ~std::uint64_t{0};
  for (std::size_t child = 2 * hole; child <= heapLength_; child = 2 * hole) {
    child += static_cast<std::size_t>(Smaller(heap_[child + 1], heap_[child]));
    if (Smaller(sinking, heap_[child])) break;
    heap_[hole] = heap_[child];
    hole = child;
  }
  heap_[hole] = sinking;
}

// Joins the two least frequent nodes under a new inner one until a single root is left. The new node is put
// where the second one stood, at the top, and sinks from there: not the same heap as one that takes both out
// and puts the new one in at the bottom, and ties come out differently.
void LzhTreeBuilder::JoinNodes(int firstInner) {
  std::size_t inner = static_cast<std::size_t>(firstInner);
  sortedBegin_ = kHeapSize;
  do {
    const std::uint64_t least = heap_[1];
    heap_[1] = heap_[heapLength_--];
    SiftDown(1);
    const std::uint64_t second = heap_[1];

    sorted_[--sortedBegin_] = static_cast<std::uint16_t>(NodeOf(least));
    sorted_[--sortedBegin_] = static_cast<std::uint16_t>(NodeOf(second));
    dad_[NodeOf(least)] = dad_[NodeOf(second)] = static_cast<std::uint16_t>(inner);

    heap_[1] = HeapEntry(FrequencyOf(least) + FrequencyOf(second),
                         std::max(DepthOf(least), DepthOf(second)) + 1, inner);
    ++inner;
    SiftDown(1);
  } while (heapLength_ >= 2);
  sorted_[--sortedBegin_] = static_cast<std::uint16_t>(NodeOf(heap_[1]));
}

// From the root down, so that every node's parent has its length. `sorted_` is in that order, with the rarest
// symbols last, which ShortenCodes relies on. The totals are summed up on the way; their extra bits are those
// of the descriptor, right or wrong.
void LzhTreeBuilder::GenBitLengths(const TreeDescriptor& descriptor, const std::uint16_t* frequency,
                                   std::uint8_t* length, int maxCode) {
  bl_count_.fill(0);
  nodeLength_[sorted_[sortedBegin_]] = 0;
  int overflow = 0;
  for (std::size_t h = sortedBegin_ + 1; h < kHeapSize; ++h) {
    const std::size_t node = sorted_[h];
    int bits = nodeLength_[dad_[node]] + 1;
    if (bits > descriptor.maxLength) {
      bits = descriptor.maxLength;
      ++overflow;
    }
    nodeLength_[node] = static_cast<std::uint8_t>(bits);
    if (static_cast<int>(node) > maxCode) continue;  // an inner node

    length[node] = static_cast<std::uint8_t>(bits);
    ++bl_count_[static_cast<std::size_t>(bits)];
    const int extraIndex = static_cast<int>(node) - descriptor.extraBase;
    const int extra = extraIndex >= 0 ? descriptor.extraBits[extraIndex] : 0;
    opt_len += frequency[node] * static_cast<std::uint32_t>(bits + extra);
    if (descriptor.fixedLength != nullptr) {
      static_len += frequency[node] * static_cast<std::uint32_t>(descriptor.fixedLength[node] + extra);
    }
  }
  if (overflow > 0) ShortenCodes(descriptor, frequency, length, maxCode, overflow);
}

// Too long codes were cut to the maximum, which over-subscribes the code. Each step hangs one of them beside
// a leaf higher up, which moves one level down; then the lengths are dealt out again, the longest to the
// rarest.
//
// Why two at a time: two cut siblings take up the room of one of them too many. The step takes one leaf at
// `bits` away and puts two at bits + 1 in its place, the old one and one of the cut pair, whose sibling now
// has the place of both. This is not optimal, and it must not be: the reference coder does the same.
void LzhTreeBuilder::ShortenCodes(const TreeDescriptor& descriptor, const std::uint16_t* frequency,
                                  std::uint8_t* length, int maxCode, int overflow) {
  const std::size_t longest = static_cast<std::size_t>(descriptor.maxLength);
  for (; overflow > 0; overflow -= 2) {
    std::size_t bits = longest - 1;
    while (bl_count_[bits] == 0) --bits;
    --bl_count_[bits];
    bl_count_[bits + 1] = static_cast<std::uint16_t>(bl_count_[bits + 1] + 2);
    --bl_count_[longest];
  }
  std::size_t h = kHeapSize;
  for (std::size_t bits = longest; bits != 0; --bits) {
    for (std::uint32_t left = bl_count_[bits]; left != 0;) {
      const std::size_t node = sorted_[--h];
      if (static_cast<int>(node) > maxCode) continue;
      opt_len += (static_cast<std::uint32_t>(bits) - length[node]) * frequency[node];  // wraps when shorter
      length[node] = static_cast<std::uint8_t>(bits);
      --left;
    }
  }
}

}  // namespace tolven::lzh

#include "cslib/lzh_trees_builder.h"

#include <algorithm>

#include "cslib/lzh_trees_static.h"

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
// On equal frequency and depth the left one counts as the smaller.
constexpr bool Smaller(std::uint64_t left, std::uint64_t right) {
  return left >> 16 <= right >> 16;
}

}  // namespace

int LzhTreeBuilder::BuildTree(const TreeDescriptor& descriptor, std::uint16_t* frequency,
                              std::uint8_t* length, std::uint16_t* code) {
  const int max_code = CollectSymbols(descriptor, frequency, length);
  for (std::size_t n = heap_length_ / 2; n >= 1; --n) SiftDown(n);
  JoinNodes(descriptor.elements);
  GenBitLengths(descriptor, frequency, length, max_code);
  GenCodes(length, static_cast<std::size_t>(max_code) + 1, bl_count_, code);
  return max_code;
}

// Fills the heap (entries 1..heap_length_, not yet ordered) with the symbols in use.
int LzhTreeBuilder::CollectSymbols(const TreeDescriptor& descriptor, std::uint16_t* frequency,
                                   std::uint8_t* length) {
  int max_code = -1;
  heap_length_ = 0;
  for (int n = 0; n < descriptor.elements; ++n) {
    if (frequency[n] != 0) {
      max_code = n;
      heap_[++heap_length_] = HeapEntry(frequency[n], 0, static_cast<std::size_t>(n));
    } else {
      length[n] = 0;
    }
  }
  // A reader wants at least two codes, so unused ones are forced in. They never occur in the data: their one
  // bit is taken off the totals in advance.
  while (heap_length_ < 2) {
    const int node = max_code < 2 ? ++max_code : 0;
    frequency[node] = 1;
    heap_[++heap_length_] = HeapEntry(1, 0, static_cast<std::size_t>(node));
    --opt_len;
    if (descriptor.fixed_length != nullptr) static_len -= descriptor.fixed_length[node];
  }
  return max_code;
}

// Lets the entry at `hole` sink until both entries below it are not smaller.
void LzhTreeBuilder::SiftDown(std::size_t hole) {
  const std::uint64_t sinking = heap_[hole];
  for (std::size_t child = 2 * hole; child <= heap_length_; child = 2 * hole) {
    if (child < heap_length_ && Smaller(heap_[child + 1], heap_[child])) ++child;
    if (Smaller(sinking, heap_[child])) break;
    heap_[hole] = heap_[child];
    hole = child;
  }
  heap_[hole] = sinking;
}

// Joins the two least frequent nodes under a new inner one until a single root is left.
void LzhTreeBuilder::JoinNodes(int first_inner) {
  std::size_t inner = static_cast<std::size_t>(first_inner);
  sorted_begin_ = kHeapSize;
  do {
    const std::uint64_t least = heap_[1];
    heap_[1] = heap_[heap_length_--];
    SiftDown(1);
    const std::uint64_t second = heap_[1];

    sorted_[--sorted_begin_] = static_cast<std::uint16_t>(NodeOf(least));
    sorted_[--sorted_begin_] = static_cast<std::uint16_t>(NodeOf(second));
    dad_[NodeOf(least)] = dad_[NodeOf(second)] = static_cast<std::uint16_t>(inner);

    heap_[1] = HeapEntry(FrequencyOf(least) + FrequencyOf(second),
                         std::max(DepthOf(least), DepthOf(second)) + 1, inner);
    ++inner;
    SiftDown(1);
  } while (heap_length_ >= 2);
  sorted_[--sorted_begin_] = static_cast<std::uint16_t>(NodeOf(heap_[1]));
}

void LzhTreeBuilder::GenBitLengths(const TreeDescriptor& descriptor, const std::uint16_t* frequency,
                                   std::uint8_t* length, int max_code) {
  bl_count_.fill(0);
  node_length_[sorted_[sorted_begin_]] = 0;
  int overflow = 0;
  for (std::size_t h = sorted_begin_ + 1; h < kHeapSize; ++h) {
    const std::size_t node = sorted_[h];
    int bits = node_length_[dad_[node]] + 1;
    if (bits > descriptor.max_length) {
      bits = descriptor.max_length;
      ++overflow;
    }
    node_length_[node] = static_cast<std::uint8_t>(bits);
    if (static_cast<int>(node) > max_code) continue;  // an inner node

    length[node] = static_cast<std::uint8_t>(bits);
    ++bl_count_[static_cast<std::size_t>(bits)];
    const int extra_index = static_cast<int>(node) - descriptor.extra_base;
    const int extra = extra_index >= 0 ? descriptor.extra_bits[extra_index] : 0;
    opt_len += frequency[node] * static_cast<std::uint32_t>(bits + extra);
    if (descriptor.fixed_length != nullptr) {
      static_len += frequency[node] * static_cast<std::uint32_t>(descriptor.fixed_length[node] + extra);
    }
  }
  if (overflow > 0) ShortenCodes(descriptor, frequency, length, max_code, overflow);
}

// Too long codes were cut to the maximum, which over-subscribes the code. Each step hangs one of them beside
// a leaf higher up, which moves one level down; then the lengths are dealt out again, the longest to the
// rarest.
void LzhTreeBuilder::ShortenCodes(const TreeDescriptor& descriptor, const std::uint16_t* frequency,
                                  std::uint8_t* length, int max_code, int overflow) {
  const std::size_t longest = static_cast<std::size_t>(descriptor.max_length);
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
      if (static_cast<int>(node) > max_code) continue;
      opt_len += (static_cast<std::uint32_t>(bits) - length[node]) * frequency[node];  // wraps when shorter
      length[node] = static_cast<std::uint8_t>(bits);
      --left;
    }
  }
}

}  // namespace tolven::lzh

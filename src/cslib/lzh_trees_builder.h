#pragma once

// Code lengths from frequencies: the construction that the reference coder of RFC 1951 uses, including its
// ties and its repair of codes that came out too long. Any optimal code would do for a reader; the writer's
// bits are fixed, so the heap must make the same choices. That rules out the faster ways to the same lengths,
// such as sorting once and merging two queues: they break ties differently.
//
// Terms: a node is a symbol (0 .. elements - 1) or, from `elements` on, an inner node in the order in which
// they were made. Its depth is the height of the tree below it, which decides between equal frequencies, so
// that trees stay flat.

#include <array>
#include <cstddef>
#include <cstdint>

#include "cslib/lzh_format.h"

namespace tolven::lzh {

// What is constant about one of the three trees.
struct TreeDescriptor {
  const std::uint8_t* fixedLength;  // lengths of the fixed tree, null when there is none
  const std::uint8_t* extraBits;    // of the symbols from extraBase on
  int extraBase;
  int elements;
  int maxLength;
};

// The symbols of one tree with what a block found out about them. `length` and `code` of a symbol that does
// not occur are 0 and undefined.
template <std::size_t kElements>
struct Tree {
  std::array<std::uint16_t, kElements> frequency;
  std::array<std::uint8_t, kElements> length;
  std::array<std::uint16_t, kElements> code;
  int maxCode;  // largest symbol in use
};

class LzhTreeBuilder {
 public:
  // Sizes in bits of the current block, with its own trees and with the fixed ones.
  std::uint32_t opt_len = 0;
  std::uint32_t static_len = 0;

  // Fills `length` and `code`, may raise frequencies from 0 to 1 so that two symbols are in use, adds the
  // tree's share to opt_len and static_len and returns the largest symbol in use.
  int BuildTree(const TreeDescriptor& descriptor, std::uint16_t* frequency, std::uint8_t* length,
                std::uint16_t* code);

 private:
  static constexpr std::size_t kHeapSize = 2 * kLitLenCodes + 1;

  int CollectSymbols(const TreeDescriptor& descriptor, std::uint16_t* frequency, std::uint8_t* length);
  void SiftDown(std::size_t hole);
  void JoinNodes(int firstInner);
  void GenBitLengths(const TreeDescriptor& descriptor, const std::uint16_t* frequency, std::uint8_t* length,
                     int maxCode);
  void ShortenCodes(const TreeDescriptor& descriptor, const std::uint16_t* frequency, std::uint8_t* length,
                    int maxCode, int overflow);

  // Heap entries: frequency << 32 | depth << 16 | node. Comparing the upper 48 bits orders by frequency, then
  // depth, in one comparison of what would otherwise be looked up in two arrays by node. A block has fewer
  // than 2^15 items and a tree fewer than 2^10 nodes, so the fields never run into each other. Entry 0 is not
  // used: the children of n are 2n and 2n + 1.
  std::array<std::uint64_t, kHeapSize> heap_;
  std::size_t heapLength_ = 0;
  // Nodes in the order in which they left the heap, filled from the back: the root comes first.
  std::array<std::uint16_t, kHeapSize> sorted_;
  std::size_t sortedBegin_ = 0;
  std::array<std::uint16_t, kHeapSize> dad_;
  std::array<std::uint8_t, kHeapSize> nodeLength_;
  std::array<std::uint16_t, kMaxCodeBits + 1> bl_count_;
};

}  // namespace tolven::lzh

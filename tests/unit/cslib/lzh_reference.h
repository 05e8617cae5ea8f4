#pragma once

// A second LZH compressor, slow and plain: one byte or one bit at a time, one array for each thing the
// format's description names, nothing shared with the real one. The two must agree bit for bit.

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "cslib/data.h"

namespace tolven::test {

struct ReferenceBlock {
  std::size_t items;
  std::size_t matches;
  bool dynamic;
};

struct ReferenceStream {
  Bytes bytes;  // with the header, and two zero bits as preamble
  std::vector<ReferenceBlock> blocks;
  int slides = 0;
  int shortenedLiteralTrees = 0;  // codes above 15 bits had to be repaired
};

class LzhReference {
 public:
  // All of `data` in one piece, with output room without end. `level`: 1..9.
  static ReferenceStream Compress(const Bytes& data, int level) { return LzhReference(data, level).Run(); }

 private:
  static constexpr int kLengthExtra[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                         2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0, 99};
  static constexpr int kDistExtra[] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                       6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
  static constexpr int kRunExtra[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 3, 7};
  static constexpr int kOrder[] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
  static constexpr int kLevels[][3] = {{4, 4, 16},    {6, 8, 16},      {8, 16, 32},
                                       {8, 32, 64},   {8, 64, 128},    {8, 128, 256},
                                       {8, 128, 512}, {32, 258, 1024}, {32, 258, 4096}};

  struct Node {
    int frequency = 0, depth = 0, dad = 0, length = 0;
    unsigned code = 0;
  };

  struct Tree {
    int elements, maxLength, extraBase;
    const int* extraBits;
    std::vector<Node> nodes{};
    int maxCode = 0;

    Node& operator[](int n) { return nodes[static_cast<std::size_t>(n)]; }
    int Extra(int n) const { return n >= extraBase ? extraBits[n - extraBase] : 0; }
    int FixedLength(int n) const {
      if (elements == 19) return 0;
      return elements == 30 ? 5 : n < 144 ? 8 : n < 256 ? 9 : n < 280 ? 7 : 8;
    }
    // The canonical codes for `count` symbols, the first bit of the code lowest.
    void AssignCodes(int count) {
      unsigned code = 0;
      for (int length = 1; length <= 15; ++length, code <<= 1) {
        for (int n = 0; n < count; ++n) {
          if ((*this)[n].length != length) continue;
          (*this)[n].code = 0;
          for (int bit = 0; bit < length; ++bit) (*this)[n].code |= (code >> bit & 1U) << (length - 1 - bit);
          ++code;
        }
      }
    }
  };

  struct Item {
    int literalOrLength;
    int distance;  // 0: a literal
  };

  LzhReference(const Bytes& data, int level) : data_(data), level_(level), limits_(kLevels[level - 1]) {}

  template <typename Array>
  static auto& At(Array& array, int index) {
    return array[static_cast<std::size_t>(index)];
  }

  // The code whose values begin at `first` or below, and where they begin.
  static std::pair<int, int> CodeOf(int value, int first, const int* extra) {
    int code = 0;
    for (; value >= first + (1 << extra[code]); ++code) first += 1 << extra[code];
    return {code, first};
  }
  static std::pair<int, int> LengthCode(int length) {
    return length == 258 ? std::pair(28, 258) : CodeOf(length, 3, kLengthExtra);
  }
  static std::pair<int, int> DistCode(int distance) { return CodeOf(distance, 1, kDistExtra); }

  void SendBits(unsigned value, int count) {
    biBuf_ |= value << biValid_;
    biValid_ += count;
    if (biValid_ <= 16) return;
    out_.bytes.push_back(static_cast<std::uint8_t>(biBuf_));
    out_.bytes.push_back(static_cast<std::uint8_t>(biBuf_ >> 8));
    biBuf_ >>= 16;
    biValid_ -= 16;
  }
  void Send(Tree& tree, int symbol) { SendBits(tree[symbol].code, tree[symbol].length); }

  void InitBlock() {
    for (Tree* tree : {&literals_, &distances_, &lengths_}) {
      tree->nodes.assign(2 * static_cast<std::size_t>(tree->elements) + 3, Node{});
    }
    literals_[256].frequency = 1;
    optLen_ = staticLen_ = 0;
    items_.clear();
    matches_ = 0;
  }

  bool Tally(const Item& item) {
    items_.push_back(item);
    if (item.distance != 0) {
      ++literals_[257 + LengthCode(item.literalOrLength).first].frequency;
      ++distances_[DistCode(item.distance).first].frequency;
      ++matches_;
    } else {
      ++literals_[item.literalOrLength].frequency;
    }
    if (level_ > 2 && items_.size() % 4096 == 0) {
      std::size_t out = items_.size() * 8;
      for (int code = 0; code < 30; ++code) {
        out += static_cast<std::size_t>(distances_[code].frequency * (5 + kDistExtra[code]));
      }
      if (matches_ < items_.size() / 2 && static_cast<long>(out / 8) < (strstart_ - blockStart_) / 2)
        return true;
    }
    return items_.size() == 16383;
  }

  static void SiftDown(std::vector<int>& heap, Tree& tree, std::size_t k, std::size_t heapLength) {
    const auto smaller = [&](int a, int b) {
      return std::pair(tree[a].frequency, tree[a].depth) <= std::pair(tree[b].frequency, tree[b].depth);
    };
    const int v = heap[k];
    for (std::size_t j = k * 2; j <= heapLength; j *= 2) {
      if (j < heapLength && smaller(heap[j + 1], heap[j])) ++j;
      if (smaller(v, heap[j])) break;
      heap[k] = heap[j];
      k = j;
    }
    heap[k] = v;
  }

  void BuildTree(Tree& tree) {
    std::vector<int> heap(1);
    tree.maxCode = -1;
    for (int n = 0; n < tree.elements; ++n) {
      if (tree[n].frequency != 0) heap.push_back(tree.maxCode = n);
    }
    while (heap.size() < 3) {
      const int node = tree.maxCode < 2 ? ++tree.maxCode : 0;
      heap.push_back(node);
      tree[node].frequency = 1;
      optLen_ -= 1;
      staticLen_ -= tree.FixedLength(node);
    }
    std::size_t heapLength = heap.size() - 1;
    for (std::size_t n = heapLength / 2; n >= 1; --n) SiftDown(heap, tree, n, heapLength);

    std::vector<int> order;  // the rarest first
    for (int node = tree.elements; heapLength >= 2; ++node) {
      const int n = heap[1];
      heap[1] = heap[heapLength--];
      SiftDown(heap, tree, 1, heapLength);
      const int m = heap[1];
      order.insert(order.end(), {n, m});
      tree[node].frequency = tree[n].frequency + tree[m].frequency;
      tree[node].depth = std::max(tree[n].depth, tree[m].depth) + 1;
      tree[n].dad = tree[m].dad = node;
      heap[1] = node;
      SiftDown(heap, tree, 1, heapLength);
    }
    order.push_back(heap[1]);
    GenBitLengths(tree, order);
    tree.AssignCodes(tree.maxCode + 1);
  }

  void GenBitLengths(Tree& tree, const std::vector<int>& order) {
    std::array<int, 16> blCount{};
    int overflow = 0;
    tree[order.back()].length = 0;
    for (auto n = order.rbegin() + 1; n != order.rend(); ++n) {
      const int bits = tree[tree[*n].dad].length + 1;
      overflow += bits > tree.maxLength ? 1 : 0;
      tree[*n].length = std::min(bits, tree.maxLength);
      if (*n > tree.maxCode) continue;
      ++At(blCount, tree[*n].length);
      optLen_ += tree[*n].frequency * (tree[*n].length + tree.Extra(*n));
      if (tree.elements != 19) staticLen_ += tree[*n].frequency * (tree.FixedLength(*n) + tree.Extra(*n));
    }
    if (overflow == 0) return;
    if (tree.elements == 286) ++out_.shortenedLiteralTrees;
    for (; overflow > 0; overflow -= 2) {
      int bits = tree.maxLength - 1;
      while (At(blCount, bits) == 0) --bits;
      --At(blCount, bits);
      At(blCount, bits + 1) += 2;
      --At(blCount, tree.maxLength);
    }
    auto leaf = order.begin();
    for (int length = tree.maxLength; length != 0; --length) {
      for (int left = At(blCount, length); left != 0; ++leaf) {
        if (*leaf > tree.maxCode) continue;
        optLen_ += (length - tree[*leaf].length) * tree[*leaf].frequency;
        tree[*leaf].length = length;
        --left;
      }
    }
  }

  void ScanTree(Tree& tree) {
    const auto add = [this](int symbol, int extra) {
      runs_.emplace_back(symbol, extra);
      ++lengths_[symbol].frequency;
    };
    int previous = -1, next = tree[0].length, count = 0;
    int most = next == 0 ? 138 : 7, least = next == 0 ? 3 : 4;
    for (int n = 0; n <= tree.maxCode; ++n) {
      const int current = next;
      next = n < tree.maxCode ? tree[n + 1].length : -2;
      if (++count < most && current == next) continue;
      if (count < least) {
        for (int i = 0; i < count; ++i) add(current, 0);
      } else if (current != 0) {
        if (current != previous) {
          add(current, 0);
          --count;
        }
        add(16, count - 3);
      } else {
        count <= 10 ? add(17, count - 3) : add(18, count - 11);
      }
      count = 0;
      previous = current;
      most = next == 0 ? 138 : current == next ? 6 : 7;
      least = next == 0 || current == next ? 3 : 4;
    }
  }

  void FlushBlock(bool final) {
    BuildTree(literals_);
    BuildTree(distances_);
    runs_.clear();
    ScanTree(literals_);
    ScanTree(distances_);
    BuildTree(lengths_);
    int maxIndex = 18;
    while (maxIndex > 3 && lengths_[kOrder[maxIndex]].length == 0) --maxIndex;
    optLen_ += 3 * (maxIndex + 1) + 14;

    const bool dynamic = (optLen_ + 10) >> 3 < (staticLen_ + 10) >> 3;
    out_.blocks.push_back({items_.size(), matches_, dynamic});
    SendBits((final ? 1U : 0U) + (dynamic ? 4U : 2U), 3);
    if (dynamic) {
      SendBits(static_cast<unsigned>(literals_.maxCode + 1 - 257), 5);
      SendBits(static_cast<unsigned>(distances_.maxCode), 5);
      SendBits(static_cast<unsigned>(maxIndex + 1 - 4), 4);
      for (int n = 0; n <= maxIndex; ++n) SendBits(static_cast<unsigned>(lengths_[kOrder[n]].length), 3);
      for (const auto& [symbol, extra] : runs_) {
        Send(lengths_, symbol);
        SendBits(static_cast<unsigned>(extra), kRunExtra[symbol]);
      }
    } else {
      for (Tree* tree : {&literals_, &distances_}) {
        const int count = tree == &literals_ ? 288 : 30;
        for (int n = 0; n < count; ++n) (*tree)[n].length = tree->FixedLength(n);
        tree->AssignCodes(count);
      }
    }
    for (const Item& item : items_) {
      if (item.distance == 0) {
        Send(literals_, item.literalOrLength);
        continue;
      }
      const auto [lengthCode, lengthBase] = LengthCode(item.literalOrLength);
      Send(literals_, 257 + lengthCode);
      SendBits(static_cast<unsigned>(item.literalOrLength - lengthBase), kLengthExtra[lengthCode]);
      const auto [distCode, distBase] = DistCode(item.distance);
      Send(distances_, distCode);
      SendBits(static_cast<unsigned>(item.distance - distBase), kDistExtra[distCode]);
    }
    Send(literals_, 256);
    InitBlock();
    if (!final) return;
    for (; biValid_ > 0; biValid_ -= 8, biBuf_ >>= 8) out_.bytes.push_back(static_cast<std::uint8_t>(biBuf_));
    out_.bytes.push_back(0);
  }

  void FillWindow() {
    if (strstart_ + lookahead_ == 32768) {
      std::copy_n(window_.begin() + 16384, 16384, window_.begin());
      for (int* position : {&matchStart_, &strstart_, &blockStart_}) *position -= 16384;
      for (auto* chain : {&head_, &prev_}) {
        for (int& position : *chain) position = std::max(position - 16384, 0);
      }
      ++out_.slides;
    }
    for (; strstart_ + lookahead_ < 32768 && read_ < data_.size(); ++lookahead_) {
      At(window_, strstart_ + lookahead_) = data_[read_++];
    }
  }

  int Insert(int at) {
    insH_ = (insH_ << 5 ^ static_cast<unsigned>(At(window_, at + 2))) & 16383;
    At(prev_, at & 16383) = head_[insH_];
    return std::exchange(head_[insH_], at);
  }

  int LongestMatch(int candidate, int prevLength) {
    const auto same = [&](int offset) {
      return At(window_, candidate + offset) == At(window_, strstart_ + offset);
    };
    int chain = prevLength >= limits_[0] ? limits_[2] / 4 : limits_[2];
    const int limit = strstart_ > 16122 ? strstart_ - 16122 : 0;
    int best = prevLength;
    do {
      if (same(best) && same(best - 1) && same(0)) {
        int length = 2;
        while (length < 258 && same(length)) ++length;
        if (length > best) {
          matchStart_ = candidate;
          best = length;
          if (best == 258) break;
        }
      }
      candidate = At(prev_, candidate & 16383);
    } while (candidate > limit && --chain != 0);
    return best;
  }

  ReferenceStream Run() {
    for (int n = 0; n < 4; ++n) out_.bytes.push_back(static_cast<std::uint8_t>(data_.size() >> (8 * n)));
    for (const int byte : {0x12, 0x1F, 0x9D, level_}) out_.bytes.push_back(static_cast<std::uint8_t>(byte));
    SendBits(0, 2);
    InitBlock();

    bool available = false, started = false;
    const auto tally = [&](const Item& item, int next) {
      const bool flush = Tally(item);
      lookahead_ -= next - strstart_;
      while (++strstart_ < next) Insert(strstart_);
      if (!flush) return;
      FlushBlock(false);
      blockStart_ = strstart_;
    };
    for (;;) {
      while (lookahead_ < 262 && read_ < data_.size()) FillWindow();
      if (lookahead_ == 0) break;
      if (!std::exchange(started, true)) insH_ = static_cast<unsigned>(window_[0] << 5 ^ window_[1]);

      const int head = Insert(strstart_);
      const int prevLength = matchLength_, prevMatch = matchStart_;
      matchLength_ = 2;
      if (head != 0 && prevLength < limits_[1] && strstart_ - head <= 16122) {
        matchLength_ = std::min(LongestMatch(head, prevLength), lookahead_);
        if (matchLength_ == 3 && strstart_ - matchStart_ > 4096) matchLength_ = 2;
      }
      if (prevLength >= 3 && matchLength_ <= prevLength) {
        tally({prevLength, strstart_ - 1 - prevMatch}, strstart_ + prevLength - 1);
        available = false;
        matchLength_ = 2;
        continue;
      }
      if (available && Tally({At(window_, strstart_ - 1), 0})) {
        FlushBlock(false);
        blockStart_ = strstart_;
      }
      available = true;
      ++strstart_;
      --lookahead_;
    }
    if (available) Tally({At(window_, strstart_ - 1), 0});
    FlushBlock(true);
    return out_;
  }

  const Bytes& data_;
  int level_;
  const int (&limits_)[3];  // good length, lazy, chain
  ReferenceStream out_;

  unsigned biBuf_ = 0;
  int biValid_ = 0;

  std::array<int, 32768 + 262> window_{};
  std::array<int, 16384> head_{}, prev_{};
  std::size_t read_ = 0;
  int strstart_ = 0, lookahead_ = 0, blockStart_ = 0, matchStart_ = 0, matchLength_ = 2;
  unsigned insH_ = 0;

  std::vector<Item> items_;
  std::size_t matches_ = 0;
  Tree literals_{286, 15, 257, kLengthExtra};
  Tree distances_{30, 15, 0, kLengthExtra};  // those of the lengths: a mistake that streams depend on
  Tree lengths_{19, 7, 0, kRunExtra};
  std::vector<std::pair<int, int>> runs_;  // symbol, extra value
  long optLen_ = 0, staticLen_ = 0;
};

}  // namespace tolven::test

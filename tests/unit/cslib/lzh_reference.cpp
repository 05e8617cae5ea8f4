#include "cslib/lzh_reference.h"

#include <algorithm>
#include <array>

namespace tolven::test {
namespace {

constexpr int kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                  2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr int kLengthExtraAsDist[30] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                        2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0, 99};
constexpr int kDistExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
constexpr int kLengthLengthExtra[19] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 3, 7};
constexpr int kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

struct Parameters {
  int good, lazy, chain;
};
constexpr Parameters kLevels[10] = {{0, 0, 0},       {4, 4, 16},     {6, 8, 16},    {8, 16, 32},
                                    {8, 32, 64},     {8, 64, 128},   {8, 128, 256}, {8, 128, 512},
                                    {32, 258, 1024}, {32, 258, 4096}};

int LengthCode(int length) {
  if (length == 258) return 28;
  for (int code = 0, base = 3;; ++code) {
    base += 1 << kLengthExtra[code];
    if (length < base) return code;
  }
}
int LengthBase(int code) {
  if (code == 28) return 258;
  int base = 3;
  for (int n = 0; n < code; ++n) base += 1 << kLengthExtra[n];
  return base;
}
int DistBase(int code) {
  int base = 1;
  for (int n = 0; n < code; ++n) base += 1 << kDistExtra[n];
  return base;
}
int DistCode(int distance) {
  int code = 0;
  while (code < 29 && DistBase(code + 1) <= distance) ++code;
  return code;
}

struct Node {
  int frequency = 0;
  int depth = 0;
  int dad = 0;
  int length = 0;
  unsigned code = 0;
};

struct PlainTree {
  int elements;
  int max_length;
  int extra_base;
  const int* extra;
  bool has_fixed;
  std::vector<Node> nodes;
  int max_code = 0;

  int Extra(int n) const { return n >= extra_base ? extra[n - extra_base] : 0; }
  int FixedLength(int n) const {
    if (elements == 30) return 5;
    return n < 144 ? 8 : n < 256 ? 9 : n < 280 ? 7 : 8;
  }
};

struct Item {
  bool match;
  int literal_or_length;
  int distance;
};

class Reference {
 public:
  Reference(const Bytes& data, int level) : data_(data), level_(level), parameters_(kLevels[level]) {}
  ReferenceStream Run();

 private:
  void SendBits(unsigned value, int count);
  void InitBlock();
  bool Tally(const Item& item);
  void FlushBlock(bool final);
  void BuildTree(PlainTree& tree);
  void SiftDown(std::vector<int>& heap, const PlainTree& tree, std::size_t k, std::size_t heap_length);
  void GenBitLengths(PlainTree& tree, const std::vector<int>& order);
  void ScanTree(const PlainTree& tree);
  void FillWindow();
  int LongestMatch(int head);
  int Insert(int at);

  const Bytes& data_;
  int level_;
  Parameters parameters_;
  ReferenceStream out_;

  unsigned bi_buf_ = 0;
  int bi_valid_ = 0;

  std::array<int, 32768 + 262> window_{};
  std::array<int, 16384> head_{};
  std::array<int, 16384> prev_{};
  std::size_t read_ = 0;
  int strstart_ = 0, lookahead_ = 0, block_start_ = 0;
  int match_start_ = 0, match_length_ = 2, prev_length_ = 2;
  unsigned ins_h_ = 0;

  std::vector<Item> items_;
  std::size_t last_dist_ = 0;
  PlainTree literals_{286, 15, 257, kLengthExtra, true, {}};
  PlainTree distances_{30, 15, 0, kLengthExtraAsDist, true, {}};
  PlainTree lengths_{19, 7, 0, kLengthLengthExtra, false, {}};
  std::vector<std::pair<int, int>> length_symbols_;  // symbol, extra value
  long opt_len_ = 0, static_len_ = 0;
};

void Reference::SendBits(unsigned value, int count) {
  if (bi_valid_ + count > 16) {
    bi_buf_ |= value << bi_valid_;
    out_.bytes.push_back(static_cast<std::uint8_t>(bi_buf_));
    out_.bytes.push_back(static_cast<std::uint8_t>(bi_buf_ >> 8));
    bi_buf_ = value >> (16 - bi_valid_);
    bi_valid_ += count - 16;
  } else {
    bi_buf_ |= value << bi_valid_;
    bi_valid_ += count;
  }
  bi_buf_ &= 0xFFFF;
}

void Reference::InitBlock() {
  for (PlainTree* tree : {&literals_, &distances_, &lengths_}) {
    tree->nodes.assign(2 * static_cast<std::size_t>(tree->elements) + 1, Node{});
  }
  literals_.nodes[256].frequency = 1;
  opt_len_ = static_len_ = 0;
  items_.clear();
  last_dist_ = 0;
}

bool Reference::Tally(const Item& item) {
  items_.push_back(item);
  if (item.match) {
    ++literals_.nodes[static_cast<std::size_t>(257 + LengthCode(item.literal_or_length))].frequency;
    ++distances_.nodes[static_cast<std::size_t>(DistCode(item.distance))].frequency;
  } else {
    ++literals_.nodes[static_cast<std::size_t>(item.literal_or_length)].frequency;
  }
  const std::size_t last_lit = items_.size();
  const std::size_t last_dist = last_dist_ += item.match ? 1 : 0;
  if (level_ > 2 && last_lit % 4096 == 0) {
    std::size_t out = last_lit * 8;
    for (std::size_t code = 0; code < 30; ++code) {
      out += static_cast<std::size_t>(distances_.nodes[code].frequency * (5 + kDistExtra[code]));
    }
    if (last_dist < last_lit / 2 && static_cast<long>(out / 8) < (strstart_ - block_start_) / 2) return true;
  }
  return last_lit == 16383 || last_dist == 16384;
}

void Reference::SiftDown(std::vector<int>& heap, const PlainTree& tree, std::size_t k,
                         std::size_t heap_length) {
  const auto smaller = [&](int a, int b) {
    const Node& left = tree.nodes[static_cast<std::size_t>(a)];
    const Node& right = tree.nodes[static_cast<std::size_t>(b)];
    return left.frequency < right.frequency ||
           (left.frequency == right.frequency && left.depth <= right.depth);
  };
  const int v = heap[k];
  std::size_t j = k * 2;
  while (j <= heap_length) {
    if (j < heap_length && smaller(heap[j + 1], heap[j])) ++j;
    if (smaller(v, heap[j])) break;
    heap[k] = heap[j];
    k = j;
    j *= 2;
  }
  heap[k] = v;
}

void Reference::BuildTree(PlainTree& tree) {
  std::vector<int> heap(1);
  tree.max_code = -1;
  for (int n = 0; n < tree.elements; ++n) {
    if (tree.nodes[static_cast<std::size_t>(n)].frequency == 0) continue;
    heap.push_back(n);
    tree.max_code = n;
  }
  while (heap.size() < 3) {
    const int node = tree.max_code < 2 ? ++tree.max_code : 0;
    heap.push_back(node);
    tree.nodes[static_cast<std::size_t>(node)].frequency = 1;
    opt_len_ -= 1;
    if (tree.has_fixed) static_len_ -= tree.FixedLength(node);
  }
  std::size_t heap_length = heap.size() - 1;
  for (std::size_t n = heap_length / 2; n >= 1; --n) SiftDown(heap, tree, n, heap_length);

  std::vector<int> order;  // the rarest first
  int node = tree.elements;
  do {
    const int n = heap[1];
    heap[1] = heap[heap_length--];
    SiftDown(heap, tree, 1, heap_length);
    const int m = heap[1];
    order.push_back(n);
    order.push_back(m);
    Node& a = tree.nodes[static_cast<std::size_t>(n)];
    Node& b = tree.nodes[static_cast<std::size_t>(m)];
    Node& joined = tree.nodes[static_cast<std::size_t>(node)];
    joined.frequency = a.frequency + b.frequency;
    joined.depth = std::max(a.depth, b.depth) + 1;
    a.dad = b.dad = node;
    heap[1] = node++;
    SiftDown(heap, tree, 1, heap_length);
  } while (heap_length >= 2);
  order.push_back(heap[1]);
  GenBitLengths(tree, order);
}

void Reference::GenBitLengths(PlainTree& tree, const std::vector<int>& order) {
  std::array<int, 16> bl_count{};
  const auto at = [&](int n) -> Node& { return tree.nodes[static_cast<std::size_t>(n)]; };
  int overflow = 0;
  at(order.back()).length = 0;
  for (auto n = order.rbegin() + 1; n != order.rend(); ++n) {
    int bits = at(at(*n).dad).length + 1;
    if (bits > tree.max_length) {
      bits = tree.max_length;
      ++overflow;
    }
    at(*n).length = bits;
    if (*n > tree.max_code) continue;
    ++bl_count[static_cast<std::size_t>(bits)];
    opt_len_ += at(*n).frequency * (bits + tree.Extra(*n));
    if (tree.has_fixed) static_len_ += at(*n).frequency * (tree.FixedLength(*n) + tree.Extra(*n));
  }
  const auto longest = static_cast<std::size_t>(tree.max_length);
  const bool too_long = overflow > 0;
  if (too_long && tree.max_length == 15 && tree.elements == 286) ++out_.shortened_literal_trees;
  while (overflow > 0) {
    std::size_t bits = longest - 1;
    while (bl_count[bits] == 0) --bits;
    --bl_count[bits];
    bl_count[bits + 1] += 2;
    --bl_count[longest];
    overflow -= 2;
  }
  auto leaf = order.begin();
  for (std::size_t length = longest; too_long && length != 0; --length) {
    for (int left = bl_count[length]; left != 0; ++leaf) {
      if (*leaf > tree.max_code) continue;
      opt_len_ += (static_cast<int>(length) - at(*leaf).length) * at(*leaf).frequency;
      at(*leaf).length = static_cast<int>(length);
      --left;
    }
  }

  unsigned code = 0;
  for (int length = 1; length <= 15; ++length, code <<= 1) {
    for (int n = 0; n <= tree.max_code; ++n) {
      if (at(n).length != length) continue;
      at(n).code = 0;
      for (int bit = 0; bit < length; ++bit) at(n).code |= (code >> bit & 1U) << (length - 1 - bit);
      ++code;
    }
  }
}

void Reference::ScanTree(const PlainTree& tree) {
  const auto add = [this](int symbol, int extra) {
    length_symbols_.emplace_back(symbol, extra);
    ++lengths_.nodes[static_cast<std::size_t>(symbol)].frequency;
  };
  int previous = -1;
  int next = tree.nodes[0].length;
  int count = 0;
  int most = next == 0 ? 138 : 7;
  int least = next == 0 ? 3 : 4;
  for (int n = 0; n <= tree.max_code; ++n) {
    const int current = next;
    next = n < tree.max_code ? tree.nodes[static_cast<std::size_t>(n) + 1].length : -2;
    if (++count < most && current == next) continue;
    if (count < least) {
      for (int i = 0; i < count; ++i) add(current, 0);
    } else if (current != 0) {
      if (current != previous) {
        add(current, 0);
        --count;
      }
      add(16, count - 3);
    } else if (count <= 10) {
      add(17, count - 3);
    } else {
      add(18, count - 11);
    }
    count = 0;
    previous = current;
    most = next == 0 ? 138 : current == next ? 6 : 7;
    least = next == 0 || current == next ? 3 : 4;
  }
}

void Reference::FlushBlock(bool final) {
  BuildTree(literals_);
  BuildTree(distances_);
  length_symbols_.clear();
  ScanTree(literals_);
  ScanTree(distances_);
  BuildTree(lengths_);
  int max_index = 18;
  while (max_index > 3 && lengths_.nodes[static_cast<std::size_t>(kOrder[max_index])].length == 0)
    --max_index;
  opt_len_ += 3 * (max_index + 1) + 14;

  const bool dynamic = (opt_len_ + 10) >> 3 < (static_len_ + 10) >> 3;
  out_.blocks.push_back({items_.size(), last_dist_, dynamic});
  SendBits((final ? 1U : 0U) + (dynamic ? 4U : 2U), 3);
  if (dynamic) {
    SendBits(static_cast<unsigned>(literals_.max_code + 1 - 257), 5);
    SendBits(static_cast<unsigned>(distances_.max_code), 5);
    SendBits(static_cast<unsigned>(max_index + 1 - 4), 4);
    for (int n = 0; n <= max_index; ++n) {
      SendBits(static_cast<unsigned>(lengths_.nodes[static_cast<std::size_t>(kOrder[n])].length), 3);
    }
    for (const auto& [symbol, extra] : length_symbols_) {
      const Node& node = lengths_.nodes[static_cast<std::size_t>(symbol)];
      SendBits(node.code, node.length);
      SendBits(static_cast<unsigned>(extra), kLengthLengthExtra[symbol]);
    }
  } else {
    unsigned code = 0;
    for (int length = 1; length <= 9; ++length, code <<= 1) {
      for (int n = 0; n < 288; ++n) {
        if (literals_.FixedLength(n) != length) continue;
        unsigned reversed = 0;
        for (int bit = 0; bit < length; ++bit) reversed |= (code >> bit & 1U) << (length - 1 - bit);
        if (n < 286) literals_.nodes[static_cast<std::size_t>(n)].code = reversed;
        if (n < 286) literals_.nodes[static_cast<std::size_t>(n)].length = length;
        ++code;
      }
    }
    for (unsigned n = 0; n < 30; ++n) {
      unsigned reversed = 0;
      for (int bit = 0; bit < 5; ++bit) reversed |= (n >> bit & 1U) << (4 - bit);
      distances_.nodes[n].code = reversed;
      distances_.nodes[n].length = 5;
    }
  }
  const auto send = [this](const PlainTree& tree, int symbol) {
    const Node& node = tree.nodes[static_cast<std::size_t>(symbol)];
    SendBits(node.code, node.length);
  };
  for (const Item& item : items_) {
    if (!item.match) {
      send(literals_, item.literal_or_length);
      continue;
    }
    const int length_code = LengthCode(item.literal_or_length);
    send(literals_, 257 + length_code);
    SendBits(static_cast<unsigned>(item.literal_or_length - LengthBase(length_code)),
             kLengthExtra[length_code]);
    const int dist_code = DistCode(item.distance);
    send(distances_, dist_code);
    SendBits(static_cast<unsigned>(item.distance - DistBase(dist_code)), kDistExtra[dist_code]);
  }
  send(literals_, 256);
  InitBlock();
  if (final) {
    for (; bi_valid_ > 0; bi_valid_ -= 8, bi_buf_ >>= 8)
      out_.bytes.push_back(static_cast<std::uint8_t>(bi_buf_));
    out_.bytes.push_back(0);
  }
}

void Reference::FillWindow() {
  if (strstart_ + lookahead_ == 32768) {
    for (std::size_t n = 0; n < 16384; ++n) window_[n] = window_[n + 16384];
    match_start_ -= 16384;
    strstart_ -= 16384;
    block_start_ -= 16384;
    for (int& position : head_) position = std::max(position - 16384, 0);
    for (int& position : prev_) position = std::max(position - 16384, 0);
    ++out_.slides;
  }
  while (strstart_ + lookahead_ < 32768 && read_ < data_.size()) {
    window_[static_cast<std::size_t>(strstart_ + lookahead_)] = data_[read_++];
    ++lookahead_;
  }
}

int Reference::Insert(int at) {
  ins_h_ = (ins_h_ << 5 ^ static_cast<unsigned>(window_[static_cast<std::size_t>(at) + 2])) & 16383;
  const int head = head_[ins_h_];
  prev_[static_cast<std::size_t>(at & 16383)] = head;
  head_[ins_h_] = at;
  return head;
}

int Reference::LongestMatch(int candidate) {
  const auto byte = [this](int at) { return window_[static_cast<std::size_t>(at)]; };
  int chain = prev_length_ >= parameters_.good ? parameters_.chain / 4 : parameters_.chain;
  const int limit = strstart_ > 16122 ? strstart_ - 16122 : 0;
  int best = prev_length_;
  do {
    if (byte(candidate + best) == byte(strstart_ + best) &&
        byte(candidate + best - 1) == byte(strstart_ + best - 1) && byte(candidate) == byte(strstart_)) {
      int length = 2;
      while (length < 258 && byte(candidate + length) == byte(strstart_ + length)) ++length;
      if (length > best) {
        match_start_ = candidate;
        best = length;
        if (best == 258) break;
      }
    }
    candidate = prev_[static_cast<std::size_t>(candidate & 16383)];
  } while (candidate > limit && --chain != 0);
  return best;
}

ReferenceStream Reference::Run() {
  for (int n = 0; n < 4; ++n) out_.bytes.push_back(static_cast<std::uint8_t>(data_.size() >> (8 * n)));
  for (const int byte : {0x12, 0x1F, 0x9D, level_}) out_.bytes.push_back(static_cast<std::uint8_t>(byte));
  SendBits(0, 2);
  InitBlock();

  bool available = false;
  bool started = false;
  for (;;) {
    while (lookahead_ < 262 && read_ < data_.size()) FillWindow();
    if (lookahead_ == 0) break;
    if (!started) ins_h_ = static_cast<unsigned>(window_[0] << 5 ^ window_[1]);
    started = true;

    const int head = Insert(strstart_);
    prev_length_ = match_length_;
    const int prev_match = match_start_;
    match_length_ = 2;
    if (head != 0 && prev_length_ < parameters_.lazy && strstart_ - head <= 16122) {
      match_length_ = std::min(LongestMatch(head), lookahead_);
      if (match_length_ == 3 && strstart_ - match_start_ > 4096) match_length_ = 2;
    }
    if (prev_length_ >= 3 && match_length_ <= prev_length_) {
      const bool flush = Tally({true, prev_length_, strstart_ - 1 - prev_match});
      for (int n = 0; n < prev_length_ - 2; ++n) Insert(++strstart_);
      ++strstart_;
      lookahead_ -= prev_length_ - 1;
      available = false;
      match_length_ = 2;
      if (flush) {
        FlushBlock(false);
        block_start_ = strstart_;
      }
      continue;
    }
    if (available && Tally({false, window_[static_cast<std::size_t>(strstart_) - 1], 0})) {
      FlushBlock(false);
      block_start_ = strstart_;
    }
    available = true;
    ++strstart_;
    --lookahead_;
  }
  if (available) Tally({false, window_[static_cast<std::size_t>(strstart_) - 1], 0});
  FlushBlock(true);
  return out_;
}

}  // namespace

ReferenceStream ReferenceCompress(const Bytes& data, int level) {
  return Reference(data, level).Run();
}

}  // namespace tolven::test

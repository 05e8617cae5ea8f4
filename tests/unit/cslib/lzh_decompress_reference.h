#pragma once

// A second decoder, written for plainness alone: bit by bit, code by code, no tables, no state between calls.
// It says what a whole stream, given at once with room enough, must come to.

#include <map>
#include <utility>

#include "cslib/cslib.h"
#include "cslib/driver.h"

namespace tolven::test {

class Reference {
 public:
  static Outcome Decode(const Bytes& stream) {
    Reference reference(stream);
    int rc = 0;
    try {
      reference.Run();
      rc = reference.out_.size() == reference.declared_ ? CS_END_OF_STREAM : CS_OK;
    } catch (const int code) {
      rc = code;
    }
    return {rc, std::move(reference.out_), 0};
  }

 private:
  // All codes of one alphabet: (length, code) to symbol.
  struct Code {
    std::map<std::pair<unsigned, unsigned>, unsigned> symbols;
  };

  explicit Reference(const Bytes& stream) : stream_(stream), declared_(stream[0]) {
    for (unsigned i = 1; i < 4; ++i) declared_ |= std::uint32_t{stream[i]} << (8 * i);
  }

  unsigned Bits(unsigned count) {
    unsigned value = 0;
    for (unsigned i = 0; i < count; ++i, ++at_) {
      if (at_ / 8 >= stream_.size()) throw static_cast<int>(CS_END_INBUFFER);
      value |= ((stream_[at_ / 8] >> (at_ % 8)) & 1U) << i;
    }
    return value;
  }

  static Code Assign(const std::vector<unsigned>& lengths) {
    Code code;
    unsigned next = 0;
    bool used = false;
    for (unsigned length = 1; length <= 15; ++length, next <<= 1) {
      for (unsigned symbol = 0; symbol < lengths.size(); ++symbol) {
        if (lengths[symbol] != length) continue;
        if (next >> length != 0) throw static_cast<int>(CS_E_TREE);
        code.symbols[{length, next++}] = symbol;
        used = true;
      }
    }
    if (!used) throw static_cast<int>(CS_E_TREE);
    return code;
  }

  unsigned Symbol(const Code& code) {
    unsigned value = 0;
    for (unsigned length = 1; length <= 15; ++length) {
      value = value << 1 | Bits(1);
      const auto found = code.symbols.find({length, value});
      if (found != code.symbols.end()) return found->second;
      // Does any longer code begin like this?
      bool prefix = false;
      for (unsigned longer = length + 1; longer <= 15 && !prefix; ++longer) {
        const auto least = code.symbols.lower_bound({longer, value << (longer - length)});
        prefix = least != code.symbols.end() && least->first.first == longer &&
                 least->first.second >> (longer - length) == value;
      }
      if (!prefix) break;
    }
    throw static_cast<int>(CS_E_BAD_CODE);
  }

  void Dynamic() {
    static constexpr unsigned order[] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    const unsigned counts = Bits(14);
    const unsigned litLen = (counts & 31) + 257, dist = ((counts >> 5) & 31) + 1, bitLen = (counts >> 10) + 4;
    if (litLen > 286 || dist > 30) throw static_cast<int>(CS_E_BAD_HEADER);
    std::vector<unsigned> bitLengths(19), lengths;
    for (unsigned i = 0; i < bitLen; ++i) bitLengths[order[i]] = Bits(3);
    const Code code = Assign(bitLengths);
    while (lengths.size() < litLen + dist) {
      const unsigned symbol = Symbol(code);
      if (symbol == 16) {
        const unsigned count = 3 + Bits(2);
        if (lengths.empty()) throw static_cast<int>(CS_E_BAD_CODE);
        lengths.insert(lengths.end(), count, lengths.back());
      } else if (symbol > 16) {
        lengths.insert(lengths.end(), symbol == 17 ? 3 + Bits(3) : 11 + Bits(7), 0U);
      } else {
        lengths.push_back(symbol);
      }
      if (lengths.size() > litLen + dist) throw static_cast<int>(CS_E_BAD_CODE);
    }
    const auto split = lengths.begin() + litLen;
    litLen_ = Assign({lengths.begin(), split});
    dist_ = Assign({split, lengths.end()});
  }

  void Fixed() {
    std::vector<unsigned> lengths(288, 8);
    std::fill(lengths.begin() + 144, lengths.begin() + 256, 9U);
    std::fill(lengths.begin() + 256, lengths.begin() + 280, 7U);
    litLen_ = Assign(lengths);
    dist_ = Assign(std::vector<unsigned>(30, 5));
  }

  void Codes() {
    static constexpr unsigned lengthBase[] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                              31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
    for (;;) {
      const unsigned symbol = Symbol(litLen_);
      if (symbol == 256) return;
      if (symbol < 256) {
        if (out_.size() == declared_) throw static_cast<int>(CS_E_BAD_CODE);
        out_.push_back(static_cast<std::uint8_t>(symbol));
        continue;
      }
      const unsigned code = symbol - 257;
      if (code > 28) throw static_cast<int>(CS_E_BAD_CODE);
      const unsigned length = lengthBase[code] + Bits(code < 8 || code == 28 ? 0 : (code - 4) / 4);
      if (length > declared_ - out_.size()) throw static_cast<int>(CS_E_BAD_CODE);
      const unsigned distCode = Symbol(dist_);
      if (distCode > 27) throw static_cast<int>(CS_E_BAD_CODE);  // begins behind the window
      const unsigned extra = distCode < 4 ? 0 : (distCode - 2) / 2;
      const unsigned base = distCode < 4 ? distCode + 1 : ((2 + distCode % 2) << extra) + 1;
      const std::size_t distance = base + Bits(extra);
      if (distance > out_.size()) throw static_cast<int>(CS_E_BAD_CODE);
      for (unsigned i = 0; i < length; ++i) out_.push_back(out_[out_.size() - distance]);
    }
  }

  void Run() {
    Bits(Bits(2));
    for (bool last = false; !last;) {
      const unsigned header = Bits(3);
      last = (header & 1) != 0;
      switch (header >> 1) {
        case 1:
          Fixed();
          break;
        case 2:
          Dynamic();
          break;
        default:
          throw static_cast<int>(CS_E_UNKNOWN_TYPE);
      }
      Codes();
    }
  }

  const Bytes& stream_;
  std::uint64_t at_ = 8 * CS_HEAD_SIZE;  // in bits
  std::uint32_t declared_;
  Bytes out_;
  Code litLen_, dist_;
};

}  // namespace tolven::test

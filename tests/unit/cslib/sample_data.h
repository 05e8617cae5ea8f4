#pragma once

// Inputs for the coders: kinds of data that lead to different choices, always the same bytes for the same
// arguments.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tolven::test {

using Bytes = std::vector<std::uint8_t>;

enum class Kind { kText, kBinary, kZeros, kPeriodic, kRandom };
inline constexpr Kind kAllKinds[] = {Kind::kText, Kind::kBinary, Kind::kZeros, Kind::kPeriodic,
                                     Kind::kRandom};

inline const char* KindName(Kind kind) {
  constexpr const char* names[] = {"text", "binary", "zeros", "periodic", "random"};
  return names[static_cast<int>(kind)];
}

// Words of a fixed vocabulary, common ones more often, with some punctuation and numbers.
inline Bytes MakeText(std::size_t size, std::mt19937& random) {
  static constexpr std::string_view kWords[] = {
      "the ",  "of ",      "and ",    "a ",     "to ",        "in ",     "file ",  "archive ",   "block ",
      "entry", " stream ", "window ", "match ", "distance ",  "length ", "byte ",  "bits ",      "directory ",
      "mode ", "link ",    "reads ",  "writes", " every ",    "which ",  "never ", "when ",      "output ",
      "input", ".\n",      ", ",      "; ",     "checksum  ", "header ", "tree ",  "frequency ", "position "};
  Bytes data;
  while (data.size() < size) {
    const auto draw = static_cast<std::uint32_t>(random());
    const std::uint32_t spread = (draw >> 8) % 36;
    const std::string word =
        draw % 17 == 0 ? std::to_string(draw >> 20) : std::string(kWords[spread * spread / 36]);
    data.insert(data.end(), word.begin(), word.end());
  }
  data.resize(size);
  return data;
}

// Records as compilers leave them: small fields, counters, repeated stretches at larger distances.
inline Bytes MakeBinary(std::size_t size, std::mt19937& random) {
  Bytes data;
  while (data.size() < size) {
    const auto draw = static_cast<std::uint32_t>(random());
    if (draw % 7 == 0 && data.size() > 64) {
      const std::size_t distance = 1 + draw / 8 % std::min<std::size_t>(data.size(), 20000);
      const std::size_t count = 3 + (draw >> 20) % 60;
      for (std::size_t n = 0; n < count; ++n) data.push_back(data[data.size() - distance]);
    } else {
      for (std::uint32_t value : {draw & 3U, 0U, draw >> 24, (draw >> 16) & 0xFU, 0x48U, 0x8BU}) {
        data.push_back(static_cast<std::uint8_t>(value));
      }
    }
  }
  data.resize(size);
  return data;
}

inline Bytes MakeData(Kind kind, std::size_t size, std::uint32_t seed = 1) {
  std::mt19937 random(seed);
  Bytes data(size);
  switch (kind) {
    case Kind::kText:
      return MakeText(size, random);
    case Kind::kBinary:
      return MakeBinary(size, random);
    case Kind::kZeros:
      break;
    case Kind::kPeriodic:
      for (std::size_t n = 0; n < size; ++n) data[n] = static_cast<std::uint8_t>("abcabdabcabe+"[n % 13]);
      break;
    case Kind::kRandom:
      for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random());
      break;
  }
  return data;
}

}  // namespace tolven::test

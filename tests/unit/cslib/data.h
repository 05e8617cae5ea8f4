#pragma once

// Inputs for the coders: kinds of data that lead to different choices, always the same bytes for the same
// arguments. Used by tests and benchmarks.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tolven::test {

using Bytes = std::vector<std::uint8_t>;

// 32 random bits a call, the same in every run.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  unsigned operator()() { return static_cast<unsigned>(engine_()); }

 private:
  std::mt19937 engine_;
};

// Random bytes are what no coder makes smaller; skewed ones are noise that coding always beats storing for.
enum class Kind { kText, kBinary, kZeros, kPeriodic, kRandom, kSkewed };
inline constexpr Kind kAllKinds[] = {Kind::kText,     Kind::kBinary, Kind::kZeros,
                                     Kind::kPeriodic, Kind::kRandom, Kind::kSkewed};

inline const char* KindName(Kind kind) {
  constexpr const char* names[] = {"text", "binary", "zeros", "periodic", "random", "skewed"};
  return names[static_cast<int>(kind)];
}

// Words of a fixed vocabulary, common ones more often, with some punctuation and numbers.
inline Bytes MakeText(std::size_t size, Random& random) {
  static constexpr std::string_view kWords[] = {
      "the ",  "of ",      "and ",    "a ",     "to ",        "in ",     "file ",  "archive ",   "block ",
      "entry", " stream ", "window ", "match ", "distance ",  "length ", "byte ",  "bits ",      "directory ",
      "mode ", "link ",    "reads ",  "writes", " every ",    "which ",  "never ", "when ",      "output ",
      "input", ".\n",      ", ",      "; ",     "checksum  ", "header ", "tree ",  "frequency ", "position "};
  Bytes data;
  while (data.size() < size) {
    const unsigned draw = random(), spread = (draw >> 8) % 36;
    const std::string word =
        draw % 17 == 0 ? std::to_string(draw >> 20) : std::string(kWords[spread * spread / 36]);
    data.insert(data.end(), word.begin(), word.end());
  }
  data.resize(size);
  return data;
}

// Records as compilers leave them: small fields, counters, repeated stretches at larger distances.
inline Bytes MakeBinary(std::size_t size, Random& random) {
  Bytes data;
  while (data.size() < size) {
    const unsigned draw = random();
    if (draw % 7 == 0 && data.size() > 64) {
      const std::size_t distance = 1 + draw / 8 % std::min<std::size_t>(data.size(), 20000);
      for (unsigned n = 3 + (draw >> 20) % 60; n != 0; --n) data.push_back(data[data.size() - distance]);
    } else {
      for (const unsigned value : {draw & 3U, 0U, draw >> 24, (draw >> 16) & 0xFU, 0x48U, 0x8BU}) {
        data.push_back(static_cast<std::uint8_t>(value));
      }
    }
  }
  data.resize(size);
  return data;
}

inline Bytes Periodic(std::size_t size, std::size_t period) {
  Random random(1);
  Bytes data = MakeBinary(period, random);
  for (std::size_t i = period; i < size; ++i) data.push_back(data[i - period]);
  data.resize(size);
  return data;
}

inline Bytes MakeData(Kind kind, std::size_t size, unsigned seed = 1) {
  Random random(seed);
  if (kind == Kind::kText) return MakeText(size, random);
  if (kind == Kind::kBinary) return MakeBinary(size, random);
  Bytes data(size);
  if (kind == Kind::kPeriodic) {
    for (std::size_t n = 0; n < size; ++n) data[n] = static_cast<std::uint8_t>("abcabdabcabe+"[n % 13]);
  }
  if (kind == Kind::kRandom) {
    for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random());
  }
  if (kind == Kind::kSkewed) {
    for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random() % 90 * (random() % 5) / 4);
  }
  return data;
}

}  // namespace tolven::test

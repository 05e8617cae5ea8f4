#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tolven {

// Longest line of a header or of an include file, its newline not counted. A longer one is no line of ours,
// and a binary file would otherwise be read to its end for one.
inline constexpr std::size_t kOldMaxLine = 4096;

// Cuts a byte stream that arrives in pieces into lines.
class LineCutter {
 public:
  enum class Result {
    kLine,  // a line is complete
    kMore,  // the piece is used up
    kBad,   // too long, or with a NUL in it: not text
  };

  // Takes bytes from the front of `bytes`, up to and including the next newline. On kLine, `line` is the text
  // without it.
  Result Next(std::span<const std::uint8_t>& bytes, std::string& line);
  // What stands behind the last newline.
  [[nodiscard]] const std::string& Rest() const { return m_partial; }

 private:
  std::string m_partial;
};

}  // namespace tolven

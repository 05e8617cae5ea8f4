#include "oldarchive/old_lines.h"

#include <algorithm>

namespace tolven {

LineCutter::Result LineCutter::Next(std::span<const std::uint8_t>& bytes, std::string& line) {
  const auto newline = std::find(bytes.begin(), bytes.end(), std::uint8_t{'\n'});
  const bool complete = newline != bytes.end();
  const auto length = static_cast<std::size_t>(newline - bytes.begin());

  // Bounds first: a hostile line must not be collected before it is refused.
  if (length > kOldMaxLine - m_partial.size()) return Result::kBad;
  if (std::find(bytes.begin(), newline, std::uint8_t{0}) != newline) return Result::kBad;

  m_partial.append(bytes.begin(), newline);
  bytes = bytes.subspan(complete ? length + 1 : length);
  if (!complete) return Result::kMore;
  line.swap(m_partial);
  m_partial.clear();
  return Result::kLine;
}

}  // namespace tolven

#include "oldarchive/old_header.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>

namespace tolven {
namespace {

constexpr std::string_view kBlanks = " \t\v\f\r";
constexpr std::size_t kNameColumn = 2;  // behind the type letter and one blank
constexpr std::size_t kNumbers = 5;     // mode, compressed length, size, time, checksum

// Where a data position must stay: it is given to a seek.
constexpr auto kMaxPosition = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

// Splits the next run of non-blanks off the front; empty at the end.
std::string_view TakeFirstField(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
  const std::size_t length = std::min(rest.find_first_of(kBlanks), rest.size());
  const std::string_view field = rest.substr(0, length);
  rest.remove_prefix(length);
  return field;
}

// Splits the last run of non-blanks off the back; empty at the start.
std::string_view TakeLastField(std::string_view& rest) {
  rest = rest.substr(0, rest.find_last_not_of(kBlanks) + 1);
  const std::size_t start = rest.find_last_of(kBlanks) + 1;
  const std::string_view field = rest.substr(start);
  rest = rest.substr(0, start);
  return field;
}

// The whole field must be a number that fits; from_chars takes a '-' for signed types only.
template <typename Number>
std::errc ReadNumber(std::string_view field, Number& number, int base) {
  const char* end = field.data() + field.size();
  const auto [stop, error] = std::from_chars(field.data(), end, number, base);
  return error == std::errc() && stop != end ? std::errc::invalid_argument : error;
}

// The five numbers of a line. The checksum may be missing (empty); one that is there must be a number, or a
// damaged line would switch its own check off.
OldLine ReadNumbers(const std::array<std::string_view, kNumbers>& fields, FileInfo& info) {
  constexpr std::errc ok{};
  if (ReadNumber(fields[0], info.mode, 8) != ok || ReadNumber(fields[1], info.compressedLength, 10) != ok ||
      ReadNumber(fields[2], info.size, 10) != ok) {
    return OldLine::kFormatError;
  }
  const std::errc time = ReadNumber(fields[3], info.mtime, 10);
  if (time == std::errc::result_out_of_range) return OldLine::kTimeError;
  if (time != ok) return OldLine::kFormatError;
  info.checksum = 0;
  if (!fields[4].empty() && ReadNumber(fields[4], info.checksum, 10) != ok) return OldLine::kFormatError;
  return OldLine::kEntry;
}

// The name is one word: what most lines look like.
OldLine ScanFromLeft(std::string_view line, FileInfo& info) {
  std::string_view rest = line.substr(kNameColumn);
  const std::string_view name = TakeFirstField(rest);
  std::array<std::string_view, kNumbers> fields;
  for (std::string_view& field : fields) field = TakeFirstField(rest);
  const OldLine result = ReadNumbers(fields, info);
  if (result == OldLine::kEntry) info.name = name;
  return result;
}

// The name has blanks: the last five words are the numbers, all digits, and the rest is the name.
OldLine ScanFromRight(std::string_view line, FileInfo& info) {
  std::string_view rest = line.substr(kNameColumn);
  std::array<std::string_view, kNumbers> fields;
  for (std::size_t i = kNumbers; i-- > 0;) {
    fields[i] = TakeLastField(rest);
    if (fields[i].empty() || fields[i].find_first_not_of("0123456789") != std::string_view::npos) {
      return OldLine::kFormatError;
    }
  }
  const std::string_view name = rest.substr(0, rest.find_last_not_of(kBlanks) + 1);
  if (name.empty()) return OldLine::kFormatError;
  const OldLine result = ReadNumbers(fields, info);
  if (result == OldLine::kEntry) info.name = name;
  return result;
}

}  // namespace

OldLine ParseEntryLine(std::string_view line, FileInfo& info) {
  if (line.size() <= kNameColumn || kBlanks.find(line[1]) == std::string_view::npos) {
    return OldLine::kFormatError;
  }
  if (line[0] != kOldTypeFile && line[0] != kOldTypeDirectory) return OldLine::kFormatError;

  OldLine result = ScanFromLeft(line, info);
  if (result == OldLine::kFormatError) result = ScanFromRight(line, info);
  info.type = line[0];
  if (info.IsDirectory()) info.mode |= kOldModeDirectory;
  return result;
}

HeaderParser::State HeaderParser::Feed(std::span<const std::uint8_t> bytes) {
  while (m_state == State::kReading && !bytes.empty()) {
    const std::size_t before = bytes.size();
    const LineCutter::Result result = m_cutter.Next(bytes, m_line);
    m_consumed += before - bytes.size();
    if (result == LineCutter::Result::kBad) m_state = State::kFormatError;
    if (result == LineCutter::Result::kLine) m_state = TakeLine();
  }
  return m_state;
}

HeaderParser::State HeaderParser::TakeLine() {
  if (m_line.starts_with('#')) return m_files.empty() ? State::kReading : PlaceEntries();
  switch (ParseEntryLine(m_line, m_files.emplace_back())) {
    case OldLine::kEntry:
      return State::kReading;
    case OldLine::kTimeError:
      return State::kTimeError;
    case OldLine::kFormatError:
      break;
  }
  return State::kFormatError;
}

// The data of the entries lies back to back in the order of the lines. Lengths below 8 hold no stream, but
// they take up their bytes all the same. A sum that no file could hold is a damaged header.
HeaderParser::State HeaderParser::PlaceEntries() {
  std::uint64_t position = m_consumed;
  for (FileInfo& info : m_files) {
    info.position = position;
    if (info.compressedLength > kMaxPosition - position) return State::kFormatError;
    position += info.compressedLength;
  }
  return State::kDone;
}

}  // namespace tolven

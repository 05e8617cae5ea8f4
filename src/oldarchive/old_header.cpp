#include "oldarchive/old_header.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>

#include "cslib/cslib.h"

namespace tolven {
namespace {

constexpr std::string_view kBlanks = " \t\v\f\r";
constexpr std::size_t kNameColumn = 2;  // behind the type letter and one blank
constexpr std::size_t kNumbers = 5;     // mode, compressed length, size, time, checksum

constexpr std::size_t kChunk = 64 * 1024;  // of entry lines
static_assert(kChunk > kOldMaxLine, "a chunk holds any line and its newline");

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

// The format was written for scanf, which takes signs, blanks and wrapped numbers where none belong. Here the
// whole field must be a number that fits; from_chars takes a '-' for signed types only.
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

// The name is one word: what most lines look like. This scan comes first and decides when it succeeds, even
// where the one from the right would find another name. `rest` is what stands behind the numbers.
OldLine ScanFromLeft(std::string_view line, FileInfo& info, std::string_view& rest) {
  rest = line.substr(kNameColumn);
  const std::string_view name = TakeFirstField(rest);
  std::array<std::string_view, kNumbers> fields;
  for (std::string_view& field : fields) field = TakeFirstField(rest);
  const OldLine result = ReadNumbers(fields, info);
  if (result == OldLine::kEntry) info.name = name;
  return result;
}

// The name has blanks: the last five words are the numbers, all digits, and the rest is the name, blanks at
// its front included. No sign and no missing checksum here, or the end of a name could pass for a number.
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

bool BeginsLikeEntry(std::string_view line) {
  return line.size() > kNameColumn && kBlanks.find(line[1]) != std::string_view::npos &&
         (line[0] == kOldTypeFile || line[0] == kOldTypeDirectory);
}

// Whether what stands behind a line's numbers is a line itself.
bool IsSecondLine(std::string_view rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
  FileInfo second;
  std::string_view ignored;
  return BeginsLikeEntry(rest) && ScanFromLeft(rest, second, ignored) == OldLine::kEntry;
}

}  // namespace

bool FileInfo::HasData() const {
  return !IsDirectory() && compressedLength >= CS_HEAD_SIZE;
}

OldLine ParseEntryLine(std::string_view line, FileInfo& info) {
  if (!BeginsLikeEntry(line)) return OldLine::kFormatError;
  std::string_view rest;
  OldLine result = ScanFromLeft(line, info, rest);
  if (result == OldLine::kFormatError) {
    result = ScanFromRight(line, info);
  } else if (IsSecondLine(rest)) {
    return OldLine::kFormatError;  // a damaged newline: the second entry must not be lost without a word
  }
  info.type = line[0];
  if (info.IsDirectory()) {
    // A file that a damaged letter made a directory: its content would be lost without a word.
    if (info.compressedLength >= CS_HEAD_SIZE) return OldLine::kFormatError;
    info.mode |= kOldModeDirectory;
  }
  return result;
}

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

// A line never spans two chunks, and full ones stay where they are: a single string would be copied, and held
// twice, each time that it grows.
void EntryLines::Add(std::string_view line) {
  if (m_chunks.empty() || m_chunks.back().size() + line.size() + 1 > kChunk) {
    m_chunks.emplace_back().reserve(kChunk);
  }
  m_chunks.back().append(line).push_back('\n');
}

std::string_view EntryLines::LineAt(std::size_t line) const {
  const std::string_view rest = std::string_view(m_chunks[line / kChunk]).substr(line % kChunk);
  return rest.substr(0, rest.find('\n'));
}

FileInfo EntryLines::At(std::size_t line) const {
  FileInfo info;
  // It was accepted when it came in.
  static_cast<void>(ParseEntryLine(LineAt(line), info));
  info.line = line;
  return info;
}

bool EntryWalk::Next() {
  const std::vector<std::string>& chunks = m_entries.m_chunks;
  // At the end of a chunk that is not full the next line is at the start of the next one.
  if (m_next / kChunk < chunks.size() && m_next % kChunk == chunks[m_next / kChunk].size()) {
    m_next = (m_next / kChunk + 1) * kChunk;
  }
  if (m_next / kChunk == chunks.size()) return false;
  const std::string_view line = m_entries.LineAt(m_next);
  static_cast<void>(ParseEntryLine(line, m_info));
  m_info.line = m_next;
  m_info.position = m_dataEnd;
  m_dataEnd += m_info.compressedLength;  // the parser has seen that no sum overflows
  m_next += line.size() + 1;
  return true;
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
  if (m_line.starts_with('#')) return m_entries.Empty() ? State::kReading : Close();
  switch (ParseEntryLine(m_line, m_info)) {
    case OldLine::kEntry:
      break;
    case OldLine::kTimeError:
      return State::kTimeError;
    case OldLine::kFormatError:
      return State::kFormatError;
  }
  // A sum that no file could hold is a damaged header. Lengths below 8 hold no stream, but they take up their
  // bytes all the same.
  if (m_info.compressedLength > kMaxPosition - m_dataLength) return State::kFormatError;
  m_dataLength += m_info.compressedLength;
  m_entries.Add(m_line);
  return State::kReading;
}

HeaderParser::State HeaderParser::Close() {
  if (m_dataLength > kMaxPosition - m_consumed) return State::kFormatError;
  m_entries.SetDataStart(m_consumed);
  return State::kDone;
}

}  // namespace tolven

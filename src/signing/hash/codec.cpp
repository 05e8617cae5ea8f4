#include "signing/hash/codec.h"

#include <array>
#include <string_view>
#include <type_traits>

namespace tolven {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0xff;
using ReverseTable = std::array<std::uint8_t, 128>;

ReverseTable MakeBase64Table() {
  ReverseTable table;
  table.fill(kNoDigit);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return table;
}

ReverseTable MakeBase16Table() {
  ReverseTable table;
  table.fill(kNoDigit);
  for (std::uint8_t i = 0; i < 10; ++i) table['0' + i] = i;
  for (std::uint8_t i = 0; i < 6; ++i) {
    table['a' + i] = static_cast<std::uint8_t>(10 + i);
    table['A' + i] = static_cast<std::uint8_t>(10 + i);
  }
  return table;
}

// A character above 127 of either width is no digit of any base; it must not be cut to 7 bits first.
template <typename Char>
std::uint8_t DigitValue(const ReverseTable& table, Char c) {
  const auto code = static_cast<std::make_unsigned_t<Char>>(c);
  return code < table.size() ? table[code] : kNoDigit;
}

constexpr bool IsModeValid(int mode, std::size_t lineLength) {
  if ((mode & ~(kHaBase64Pad | kHaBase64Lines)) != 0) return false;
  return (mode & kHaBase64Lines) == 0 || (lineLength != 0 && lineLength % 4 == 0);
}

// How a text of `groups` groups of four characters falls into lines. Lines hold whole groups.
struct Lines {
  std::size_t groupsPerLine;  // 0: one endless line
  bool BreaksBefore(std::size_t group) const {
    return groupsPerLine != 0 && group != 0 && group % groupsPerLine == 0;
  }
};

// Counts what it is given and writes what fits, so that the caller decides once whether it was enough.
template <typename Char>
class BoundedText {
 public:
  BoundedText(Char* output, std::size_t size) : m_output(output), m_size(size) {}
  void Put(Char c) {
    if (m_count < m_size) m_output[m_count] = c;
    ++m_count;
  }
  std::size_t Count() const { return m_count; }
  bool Fits() const { return m_count <= m_size; }

 private:
  Char* m_output;
  std::size_t m_size;
  std::size_t m_count = 0;
};

template <typename Char>
void PutGroup(BoundedText<Char>& text, const std::uint8_t* bytes, std::size_t count, bool pad) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 3; ++i) value = (value << 8) | (i < count ? bytes[i] : 0u);
  for (std::size_t i = 0; i < 4; ++i) {
    if (i <= count) {
      text.Put(static_cast<Char>(kAlphabet[(value >> (18 - 6 * i)) & 63]));
    } else if (pad) {
      text.Put(static_cast<Char>('='));
    }
  }
}

template <typename Char>
int Encode(const void* data, std::size_t length, int mode, std::size_t lineLength, const Char* lineSeparator,
           Char* output, std::size_t outputSize, std::size_t* written) {
  const bool breaks = (mode & kHaBase64Lines) != 0;
  if (output == nullptr || (data == nullptr && length != 0)) return HA_CODEC_ENULL;
  if (breaks && lineSeparator == nullptr) return HA_CODEC_ENULL;
  if (!IsModeValid(mode, lineLength)) return HA_CODEC_EMODE;
  // Even without padding and separators a text is longer than its data.
  if (outputSize <= length) return HA_CODEC_ESIZE;

  const auto* bytes = static_cast<const std::uint8_t*>(data);
  const std::basic_string_view<Char> separator = breaks ? lineSeparator : std::basic_string_view<Char>();
  const Lines lines{breaks ? lineLength / 4 : 0};
  BoundedText<Char> text(output, outputSize);
  for (std::size_t at = 0, group = 0; at < length; at += 3, ++group) {
    if (lines.BreaksBefore(group)) {
      for (const Char c : separator) text.Put(c);
    }
    const std::size_t count = length - at < 3 ? length - at : 3;
    PutGroup(text, bytes + at, count, (mode & kHaBase64Pad) != 0);
  }
  text.Put(Char{0});
  if (!text.Fits()) return HA_CODEC_ESIZE;
  if (written != nullptr) *written = text.Count() - 1;
  return HA_CODEC_OK;
}

// One group of up to four characters. Returns the number of bytes it stands for, 0 when it is malformed.
template <typename Char>
std::size_t DecodeGroup(std::basic_string_view<Char> group, bool padded, std::array<std::uint8_t, 3>& bytes) {
  static const ReverseTable kTable = MakeBase64Table();
  std::size_t digits = group.size();
  if (padded) {
    if (digits != 4) return 0;
    while (digits > 2 && group[digits - 1] == static_cast<Char>('=')) --digits;
  }
  if (digits < 2) return 0;  // six bits are no byte
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::uint8_t digit = i < digits ? DigitValue(kTable, group[i]) : std::uint8_t{0};
    if (digit == kNoDigit) return 0;
    value = (value << 6) | digit;
  }
  const std::size_t count = digits - 1;
  if ((value & ((1u << (8 * (3 - count))) - 1)) != 0) return 0;  // bits that no byte takes up must be 0
  for (std::size_t i = 0; i < 3; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (16 - 8 * i));
  return count;
}

template <typename Char>
int Decode(const Char* input, std::size_t length, int mode, std::size_t lineLength, const Char* lineSeparator,
           std::uint8_t* output, std::size_t outputSize, std::size_t* written) {
  const bool breaks = (mode & kHaBase64Lines) != 0;
  if (output == nullptr || (input == nullptr && length != 0)) return HA_CODEC_ENULL;
  if (breaks && lineSeparator == nullptr) return HA_CODEC_ENULL;
  if (!IsModeValid(mode, lineLength)) return HA_CODEC_EMODE;

  std::basic_string_view<Char> rest(input, length);
  const std::basic_string_view<Char> separator = breaks ? lineSeparator : std::basic_string_view<Char>();
  const Lines lines{breaks ? lineLength / 4 : 0};
  std::size_t total = 0;
  for (std::size_t group = 0; !rest.empty(); ++group) {
    if (lines.BreaksBefore(group)) {
      if (!rest.starts_with(separator)) return HA_CODEC_ETEXT;
      rest.remove_prefix(separator.size());
    }
    std::array<std::uint8_t, 3> bytes;
    const std::size_t taken = rest.size() < 4 ? rest.size() : 4;
    const std::size_t count = DecodeGroup(rest.substr(0, taken), (mode & kHaBase64Pad) != 0, bytes);
    rest.remove_prefix(taken);
    // Only the last group may stand for fewer than three bytes.
    if (count == 0 || (count < 3 && !rest.empty())) return HA_CODEC_ETEXT;
    if (outputSize - total < count) return HA_CODEC_ESIZE;
    for (std::size_t i = 0; i < count; ++i) output[total++] = bytes[i];
  }
  if (written != nullptr) *written = total;
  return HA_CODEC_OK;
}

template <typename Char>
int DecodeHex(const Char* text, std::size_t length, std::uint8_t* output, std::size_t outputSize,
              std::size_t* written) {
  static const ReverseTable kTable = MakeBase16Table();
  if (output == nullptr || (text == nullptr && length != 0)) return HA_CODEC_ENULL;
  if (length % 2 != 0) return HA_CODEC_ETEXT;
  if (outputSize < length / 2) return HA_CODEC_ESIZE;
  for (std::size_t i = 0; i < length; i += 2) {
    const std::uint8_t high = DigitValue(kTable, text[i]);
    const std::uint8_t low = DigitValue(kTable, text[i + 1]);
    if (high == kNoDigit || low == kNoDigit) return HA_CODEC_ETEXT;
    output[i / 2] = static_cast<std::uint8_t>(high << 4 | low);
  }
  if (written != nullptr) *written = length / 2;
  return HA_CODEC_OK;
}

}  // namespace

int haEncBase64SB(const void* data, std::size_t length, int mode, std::size_t lineLength,
                  const char* lineSeparator, char* output, std::size_t outputSize, std::size_t* written) {
  return Encode(data, length, mode, lineLength, lineSeparator, output, outputSize, written);
}

int haEncBase64UC(const void* data, std::size_t length, int mode, std::size_t lineLength,
                  const char16_t* lineSeparator, char16_t* output, std::size_t outputSize,
                  std::size_t* written) {
  return Encode(data, length, mode, lineLength, lineSeparator, output, outputSize, written);
}

int haDecBase64SB(const char* text, std::size_t length, int mode, std::size_t lineLength,
                  const char* lineSeparator, std::uint8_t* output, std::size_t outputSize,
                  std::size_t* written) {
  return Decode(text, length, mode, lineLength, lineSeparator, output, outputSize, written);
}

int haDecBase64UC(const char16_t* text, std::size_t length, int mode, std::size_t lineLength,
                  const char16_t* lineSeparator, std::uint8_t* output, std::size_t outputSize,
                  std::size_t* written) {
  return Decode(text, length, mode, lineLength, lineSeparator, output, outputSize, written);
}

int haDecBase16SB(const char* text, std::size_t length, std::uint8_t* output, std::size_t outputSize,
                  std::size_t* written) {
  return DecodeHex(text, length, output, outputSize, written);
}

int haDecBase16UC(const char16_t* text, std::size_t length, std::uint8_t* output, std::size_t outputSize,
                  std::size_t* written) {
  return DecodeHex(text, length, output, outputSize, written);
}

}  // namespace tolven

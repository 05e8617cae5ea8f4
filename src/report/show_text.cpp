#include "report/show_text.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "report/log_man.h"
#include "report/run_status.h"

namespace tolven {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

constexpr std::array kUnsafe = {
    Range{0x00, 0x1F},     Range{0x7F, 0x9F},      // C0, DEL and C1
    Range{0x061C, 0x061C}, Range{0x200E, 0x200F},  // marks of direction
    Range{0x2028, 0x2029},                         // line and paragraph separator
    Range{0x202A, 0x202E}, Range{0x2066, 0x2069},  // embeddings, overrides and isolates
};

// How long a sequence with this first byte is, and the smallest character that needs so many.
struct Lead {
  std::uint8_t mask;
  std::uint8_t bits;
  std::size_t length;
  char32_t smallest;
};
constexpr std::array kLeads = {
    Lead{0x80, 0x00, 1, 0x00},
    Lead{0xE0, 0xC0, 2, 0x80},
    Lead{0xF0, 0xE0, 3, 0x800},
    Lead{0xF8, 0xF0, 4, 0x10000},
};
constexpr char32_t kLargest = 0x10FFFF;

constexpr bool IsSurrogate(char32_t character) {
  return character >= 0xD800 && character <= 0xDFFF;
}

std::uint8_t ByteAt(std::string_view text, std::size_t at) {
  return static_cast<std::uint8_t>(text[at]);
}

struct Character {
  std::size_t length;
  bool safe;
};

constexpr Character kInvalid = {1, false};

Character FirstCharacter(std::string_view text) {
  const std::uint8_t first = ByteAt(text, 0);
  const auto lead = std::find_if(kLeads.begin(), kLeads.end(),
                                 [first](const Lead& row) { return (first & row.mask) == row.bits; });
  if (lead == kLeads.end() || lead->length > text.size()) return kInvalid;
  char32_t character = first & static_cast<std::uint8_t>(~lead->mask);
  for (std::size_t i = 1; i < lead->length; ++i) {
    const std::uint8_t next = ByteAt(text, i);
    if ((next & 0xC0) != 0x80) return kInvalid;
    character = (character << 6) | (next & 0x3FU);
  }
  if (character < lead->smallest || character > kLargest || IsSurrogate(character)) return kInvalid;
  const bool unsafe = std::any_of(kUnsafe.begin(), kUnsafe.end(), [character](const Range& range) {
    return character >= range.first && character <= range.last;
  });
  return {lead->length, !unsafe};
}

bool LooksLikeEscape(std::string_view text) {
  constexpr std::size_t kDigits = 3;
  if (text.size() <= kDigits || text.front() != '\\') return false;
  const std::string_view digits = text.substr(1, kDigits);
  return std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '7'; });
}

void AppendOctal(std::string& shown, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::uint8_t byte = ByteAt(bytes, i);
    shown += '\\';
    for (const int shift : {6, 3, 0}) shown += static_cast<char>('0' + ((byte >> shift) & 7));
  }
}

}  // namespace

std::string EscapeText(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const Character character = FirstCharacter(text);
    const std::string_view bytes = text.substr(0, character.length);
    if (character.safe && !LooksLikeEscape(text)) {
      shown += bytes;
    } else {
      AppendOctal(shown, bytes);
    }
    text.remove_prefix(character.length);
  }
  return shown;
}

std::string ShowText(std::string_view text) {
  const CLogMan* log = RunStatus::Current().logManager;
  return log != nullptr && log->IsTerminal() ? EscapeText(text) : std::string(text);
}

std::string FormatText(const char* format, ...) {
  char text[512];
  std::va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

}  // namespace tolven

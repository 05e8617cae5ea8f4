#include "archive/entry_info.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "archive/dir_entry.h"
#include "report/show_text.h"

namespace tolven {

CEntryInfo::CEntryInfo(const CDirEntry& entry)
    : CEntryInfo(entry.GetName(), entry.Header(), entry.IsEntrySigned()) {}

CEntryInfo::CEntryInfo(std::string name, const EntryHeader& header, bool isSigned)
    : m_name(std::move(name)), m_header(header), m_signed(isSigned) {}

std::string CEntryInfo::Permissions() const {
  std::string text = "----------";
  constexpr char kLetters[] = "rwx";
  if (m_signed) text[0] = 's';
  if ((m_header.mode & kModeTypeMask) == kModeTypeDirectory) text[0] = 'd';
  if ((m_header.mode & kModeTypeMask) == kModeTypeLink) text[0] = 'l';
  for (std::size_t bit = 0; bit < 9; ++bit) {
    if ((m_header.mode & (0x100U >> bit)) != 0) text[bit + 1] = kLetters[bit % 3];
  }
  // Lower-case "s" for all three, also where the execute bit is clear.
  if ((m_header.mode & 0x800) != 0) text[3] = 's';
  if ((m_header.mode & 0x400) != 0) text[6] = 's';
  if ((m_header.mode & 0x200) != 0) text[9] = 's';
  return text;
}

std::string CEntryInfo::Date() const {
  const auto when = static_cast<std::time_t>(m_header.mtime);
  std::tm local{};
  if (localtime_r(&when, &local) == nullptr) return {};
  std::array<char, 18> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%d %b %Y %H:%M", &local);
  return std::string(text.data(), length);
}

std::string CEntryInfo::GetInfoText() const {
  std::array<char, 128> columns{};
  const double length = m_header.DataLength();
  // Whole numbers are spelled several times faster; beyond 2^53 a length is the number that it is rounded to.
  if (length >= 0 && length < 0x1p53) {
    std::snprintf(columns.data(), columns.size(), "%12lld %20s ", static_cast<long long>(length),
                  Date().c_str());
  } else {
    std::snprintf(columns.data(), columns.size(), "%12.0f %20s ", length, Date().c_str());
  }
  return Permissions() + columns.data() + ShowText(m_name);
}

}  // namespace tolven

// The archives of the -f text.
#include <algorithm>
#include <cctype>
#include <string_view>

#include "cmdline/cmd_line.h"
#include "fileio/utils.h"

namespace tolven {
namespace {

constexpr const char* kDefaultArchive = "DEFAULT.VRA";

bool IsSpace(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool IsComma(char c) {
  return c == ',';
}

}  // namespace

const std::vector<std::string>& CCmdLine::GetArchsToProcess() {
  if (!m_archivesParsed) {
    m_archivesParsed = true;
    ParseNameStr();
  }
  return m_archives;
}

// Separated by commas when there is one, blanks belonging to the names then; otherwise by white space.
void CCmdLine::ParseNameStr() {
  if (m_options.archiveText == nullptr) {
    m_archives.emplace_back(kDefaultArchive);
    return;
  }
  const std::string_view text = m_options.archiveText;
  const auto isSeparator = text.find(',') == std::string_view::npos ? IsSpace : IsComma;
  auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
  while (begin != text.end()) {
    const auto end = std::find_if(begin, text.end(), isSeparator);
    if (begin != end) AddArchive(std::string(begin, end));
    begin = std::find_if_not(end, text.end(), isSeparator);
    begin = std::find_if_not(begin, text.end(), IsSpace);
  }
}

void CCmdLine::AddArchive(const std::string& name) {
  const std::string lastComponent = name.substr(name.rfind('/') + 1);
  const bool isPattern = lastComponent.find_first_of("*?") != std::string::npos;
  if (isPattern || m_options.ignoreCase) {
    AddNamesToContainer(m_archives, name, m_options.ignoreCase);
  } else {
    m_archives.push_back(name);
  }
}

}  // namespace tolven

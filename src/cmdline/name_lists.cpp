// The archives of the -f text, and the names to process: the list files -A, -X and -T, and what is done to
// every name.
#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

#include "cmdline/cmd_line.h"
#include "fileio/file_stream.h"
#include "fileio/utils.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/show_text.h"

namespace tolven {
namespace {

constexpr const char* kDefaultArchive = "DEFAULT.VRA";

using Names = std::vector<std::string>;

bool IsSpace(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool IsComma(char c) {
  return c == ',';
}

std::string_view StripLeft(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  return text;
}

std::string_view StripRight(std::string_view text) {
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

void ConvertSeparators(std::string& name) {
  std::replace(name.begin(), name.end(), '\\', '/');
}

std::string CleanName(std::string_view text) {
  std::string name(StripLeft(StripRight(text)));
  ConvertSeparators(name);
  return name;
}

void DropTrailingSlash(std::string& name) {
  if (name.size() > 1 && name.back() == '/') name.pop_back();
}

void DropEmpty(Names& names) {
  std::erase(names, std::string());
}

void SortUnique(Names& names) {
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
}

void CleanAll(Names& names) {
  for (std::string& name : names) name = CleanName(name);
  DropEmpty(names);
}

void Normalise(Names& names) {
  for (std::string& name : names) {
    ConvertSeparators(name);
    DropTrailingSlash(name);
  }
  DropEmpty(names);
  SortUnique(names);
}

std::string ReadWholeFile(const char* name) {
  CFileStream stream(name, kOpenRead);
  if (!stream.Open()) throw COpenExcept(name, {stream.GetLastError()});
  std::string content;
  unsigned char buffer[4096];
  unsigned long done = 0;
  do {
    if (!stream.Read(buffer, sizeof buffer, &done)) throw CReadExcept(name);
    content.append(reinterpret_cast<const char*>(buffer), done);
  } while (done == sizeof buffer);
  return content;
}

// The system knows no name with a NUL in it: such a line ends there, as every other use of it would.
Names ReadLines(const char* file) {
  const std::string content = ReadWholeFile(file);
  Names lines;
  for (std::string_view rest = content; !rest.empty();) {
    const auto newline = rest.find('\n');
    const std::string_view line = rest.substr(0, newline);
    lines.emplace_back(line.substr(0, line.find('\0')));
    rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
  }
  return lines;
}

// Of -A and -X. Only a "#" in the first column is a comment: a name may begin with a blank and a "#".
Names ReadNameList(const char* file) {
  Names names = ReadLines(file);
  std::erase_if(names, [](const std::string& line) { return line.empty() || line.front() == '#'; });
  CleanAll(names);
  return names;
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

void CCmdLine::MergeFileLists() {
  if (m_options.includeFile == nullptr && m_options.excludeFile == nullptr) return;
  if (m_options.includeFile != nullptr) {
    m_literalNames = ReadNameList(m_options.includeFile);
    m_names.insert(m_names.end(), m_literalNames.begin(), m_literalNames.end());
  }
  CleanAll(m_names);
  CleanAll(m_typedNames);
  std::sort(m_names.begin(), m_names.end());
  if (m_options.excludeFile == nullptr) return;

  m_excludes = ReadNameList(m_options.excludeFile);
  std::for_each(m_excludes.begin(), m_excludes.end(), DropTrailingSlash);
  SortUnique(m_excludes);
  std::erase_if(m_names, [this](std::string name) {
    DropTrailingSlash(name);
    return std::binary_search(m_excludes.begin(), m_excludes.end(), name);
  });
}

void CCmdLine::ProcessRenameList() {
  if (m_options.renameFile == nullptr) return;
  for (const std::string& raw : ReadLines(m_options.renameFile)) {
    const std::string_view line = StripLeft(raw);
    if (line.empty() || line.front() == '#') continue;
    std::size_t separator = line.find('|');
    if (separator == std::string_view::npos) {
      const auto blank = std::find_if(line.begin(), line.end(), IsSpace);
      if (blank != line.end()) separator = static_cast<std::size_t>(blank - line.begin());
    }
    std::string oldName;
    std::string newName;
    if (separator != std::string_view::npos) {
      oldName = CleanName(line.substr(0, separator));
      newName = CleanName(line.substr(separator + 1));
    }
    if (oldName.empty() || newName.empty()) {
      throw CExcept(std::string("TOLVEN: wrong format in file ") + ShowText(m_options.renameFile),
                    kErrorRenameFile);
    }
    m_renames.emplace(std::move(oldName), std::move(newName));
  }
}

void CCmdLine::FillFileList() {
  for (const auto& [oldName, newName] : m_renames) {
    m_names.push_back(oldName);
    m_literalNames.push_back(oldName);
  }
}

void CCmdLine::FormatFilenames() {
  Normalise(m_names);
  Normalise(m_typedNames);
  Normalise(m_literalNames);
  // "." is every entry of the current directory, and that needs a pattern wherever the name came from.
  if (std::erase(m_names, ".") != 0) {
    if (std::find(m_names.begin(), m_names.end(), "*") == m_names.end()) m_names.emplace_back("*");
    m_typedNames.emplace_back("*");
    SortUnique(m_typedNames);
  }
  Names literal;
  std::set_difference(m_literalNames.begin(), m_literalNames.end(), m_typedNames.begin(), m_typedNames.end(),
                      std::back_inserter(literal));
  m_literalNames = std::move(literal);
}

bool CCmdLine::FindNewName(const std::string& oldName, std::string& newName) const {
  const auto found = m_renames.find(oldName);
  if (found == m_renames.end()) return false;
  newName = found->second;
  return true;
}

bool CCmdLine::IsLiteralName(const std::string& name) const {
  return std::binary_search(m_literalNames.begin(), m_literalNames.end(), name);
}

}  // namespace tolven

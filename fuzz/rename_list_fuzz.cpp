// The rename list -T, compared with a plain reading of it line by line.
#include <cctype>
#include <map>
#include <optional>

#include "cmdline/cmd_line.h"
#include "fuzz/support.h"
#include "report/except.h"

namespace {

constexpr const char* kBlanks = " \t\n\v\f\r";

std::string Clean(const std::string& text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  std::string name = text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

// Old name to new one; nothing for a list with a wrong line.
std::optional<std::map<std::string, std::string>> Read(tolven::fuzz::Input input) {
  std::map<std::string, std::string> names;
  while (!input.Rest().empty()) {
    const std::string line = Clean(input.Line().c_str());
    if (line.empty() || line[0] == '#') continue;
    const std::size_t end = std::min(line.find('|'), line.find_first_of(kBlanks));
    const std::size_t at = line.find('|') == std::string::npos ? end : line.find('|');
    if (at == std::string::npos) return std::nullopt;
    const std::string oldName = Clean(line.substr(0, at)), newName = Clean(line.substr(at + 1));
    if (oldName.empty() || newName.empty()) return std::nullopt;
    names.emplace(oldName, newName);
  }
  return names;
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  const fuzz::MemoryFile file(input.Rest());
  CCmdLine line;
  line.MutableOptions().renameFile = file.Name().c_str();
  const auto expected = Read(input);
  try {
    line.ProcessRenameList();
    line.FillFileList();
    Require(expected && line.GetNames().size() == expected->size());
    for (const auto& [oldName, newName] : *expected) {
      std::string found;
      Require(line.FindNewName(oldName, found) && found == newName);
    }
  } catch (const CExcept& except) {
    Require(!expected && except.GetNumber() == 43);
  }
}

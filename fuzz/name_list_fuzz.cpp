// The list files -A and -X and the rules on names behind them. First byte: where -X begins in the input. A
// name that survives must look like one.
#include "cmdline/cmd_line.h"
#include "fileio/utils.h"
#include "fuzz/support.h"

void tolven::fuzz::Run(Input input) {
  const std::size_t split = input.Byte();
  const Bytes text = input.Rest();
  const MemoryFile exclude(text.first(std::min(split, text.size())));
  const MemoryFile include(text.subspan(std::min(split, text.size())));
  CCmdLine line;
  CmdOptions& options = line.MutableOptions();
  options.includeFile = include.Name().c_str();
  if (split != 0) options.excludeFile = exclude.Name().c_str();
  line.MergeFileLists();
  line.FormatFilenames();
  for (const std::string& name : line.GetNames()) {
    Require(!name.empty() && name != "." &&
            name.find_first_of(std::string_view("\\\n\0", 3)) == std::string::npos);
    Require(CUtils::StringMatch(name.c_str(), "*") &&
            CUtils::StringMatch(name.c_str(), (name + "*").c_str()));
    for (const std::string& pattern : line.GetExcludeList()) {
      Require(pattern != name || name == "*");  // which "." became later
      CUtils::StringMatch(name.c_str(), pattern.c_str());
    }
    std::string path = name;
    CUtils::ValidateFilePath(path);
    Require(StaysBelow(path));
  }
}

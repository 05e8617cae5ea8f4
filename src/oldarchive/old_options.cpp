#include "oldarchive/old_options.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <span>
#include <string_view>

#include "fileio/file_stream.h"
#include "fileio/utils.h"
#include "oldarchive/old_messages.h"
#include "oldarchive/old_paths.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {
namespace {

constexpr std::string_view kCommands = "cxtd";
constexpr std::uint32_t kMaxPermission = 07777;
constexpr std::size_t kPiece = 4096;

// The arguments as given. What they mean for a run is worked out afterwards: a rule on two of them must not
// depend on which came first.
struct RawOptions {
  char command = 0;
  bool verbose = false;
  bool ignoreCase = false;
  bool spaceCheck = false;
  bool compareChecksums = false;
  bool absolutePaths = false;
  bool flat = false;
  bool lowerCase = false;
  bool anyPath = false;
  bool keepDirModes = false;
  std::optional<std::string> archive;
  std::optional<std::string> sourceDir;
  std::optional<std::string> includeFile;
  std::optional<std::string> excludeFile;
  std::optional<std::string> renameFile;
  std::optional<std::string> targetDir;
  std::optional<std::string> permission;
  std::vector<std::string> names;
};

struct FlagRow {
  std::string_view name;
  bool RawOptions::*flag;
};
constexpr std::array kLetters = {
    FlagRow{"v", &RawOptions::verbose},       FlagRow{"g", &RawOptions::ignoreCase},
    FlagRow{"s", &RawOptions::spaceCheck},    FlagRow{"V", &RawOptions::compareChecksums},
    FlagRow{"P", &RawOptions::absolutePaths},
};
constexpr std::array kFlags = {
    FlagRow{"-flat", &RawOptions::flat},       FlagRow{"-P", &RawOptions::absolutePaths},
    FlagRow{"-lower", &RawOptions::lowerCase}, FlagRow{"-xnopvalid", &RawOptions::anyPath},
    FlagRow{"-h", &RawOptions::keepDirModes},
};

struct ValueRow {
  std::string_view name;
  std::optional<std::string> RawOptions::*value;
};
// With a name, because the letter 'f' takes the same value as the option.
constexpr ValueRow kArchiveRow = {"-f", &RawOptions::archive};
constexpr std::array kValues = {
    kArchiveRow,
    ValueRow{"-C", &RawOptions::sourceDir},
    ValueRow{"-A", &RawOptions::includeFile},
    ValueRow{"-X", &RawOptions::excludeFile},
    ValueRow{"-T", &RawOptions::renameFile},
    ValueRow{"-R", &RawOptions::targetDir},
    ValueRow{"-p", &RawOptions::permission},
};

// A rule on a combination: broken iff the test says so. The first broken one is reported. The rules on the
// making of archives are kept although nothing here makes any: a wrong call is told what is wrong with it.
struct RuleRow {
  int code;
  bool (*broken)(const RawOptions& raw);
};
constexpr std::array kRules = {
    RuleRow{OLD_C_WITH_P, [](const RawOptions& raw) { return raw.sourceDir && raw.absolutePaths; }},
    RuleRow{OLD_C_NEEDS_CREATE, [](const RawOptions& raw) { return raw.sourceDir && raw.command != 'c'; }},
    RuleRow{OLD_T_NEEDS_CREATE, [](const RawOptions& raw) { return raw.renameFile && raw.command != 'c'; }},
    RuleRow{OLD_X_NEEDS_CREATE, [](const RawOptions& raw) { return raw.excludeFile && raw.command != 'c'; }},
    RuleRow{OLD_R_NEEDS_EXTRACT, [](const RawOptions& raw) { return raw.targetDir && raw.command != 'x'; }},
    RuleRow{OLD_S_NEEDS_READING,
            [](const RawOptions& raw) { return raw.spaceCheck && raw.command != 'x' && raw.command != 't'; }},
    RuleRow{OLD_NO_FILENAMES,
            [](const RawOptions& raw) {
              return raw.command == 'c' && raw.names.empty() && !raw.includeFile && !raw.renameFile;
            }},
};

template <typename Rows>
auto FindRow(const Rows& rows, std::string_view name) {
  const auto* row = rows.data();
  while (row != rows.data() + rows.size() && row->name != name) ++row;
  return row == rows.data() + rows.size() ? nullptr : row;
}

// Reads an argument vector front to back.
class ArgumentReader {
 public:
  ArgumentReader(int argc, const char* const* argv, RawOptions& raw, int* error, std::string* text)
      : m_argc(argc), m_argv(argv), m_raw(raw), m_error(error), m_text(text) {}

  bool ReadAll() {
    if (!ReadLetters()) return false;
    while (m_next < m_argc) {
      const std::string_view argument = m_argv[m_next++];
      if (argument == "--") {
        // The program's own lists have normalised theirs already, and a name may begin with '-'.
        m_raw.names.insert(m_raw.names.end(), m_argv + m_next, m_argv + m_argc);
        return true;
      }
      if (!ReadArgument(argument)) return false;
    }
    return true;
  }

 private:
  bool Fail(int code, std::string_view argument) {
    return SetErrorMessage(m_error, m_text, code, std::string(argument));
  }

  bool ReadLetters() {
    std::string_view letters = m_next < m_argc ? m_argv[m_next] : "";
    if (letters.starts_with('-')) letters.remove_prefix(1);
    if (letters.empty() || kCommands.find(letters[0]) == std::string_view::npos) {
      return Fail(OLD_NO_COMMAND, letters);
    }
    ++m_next;
    m_raw.command = letters[0];
    for (std::size_t i = 1; i < letters.size(); ++i) {
      const std::string_view letter = letters.substr(i, 1);
      if (letter == "f") {
        if (!ReadValue(kArchiveRow)) return false;
      } else if (const FlagRow* row = FindRow(kLetters, letter)) {
        m_raw.*(row->flag) = true;
      } else {
        return Fail(OLD_OPTION_UNKNOWN, letters.substr(i));
      }
    }
    return true;
  }

  bool ReadArgument(std::string_view argument) {
    if (const FlagRow* flag = FindRow(kFlags, argument)) {
      m_raw.*(flag->flag) = true;
    } else if (const ValueRow* value = FindRow(kValues, argument)) {
      return ReadValue(*value);
    } else if (argument.starts_with('-')) {
      return Fail(OLD_OPTION_UNKNOWN, argument);
    } else if (!argument.empty()) {
      m_raw.names.push_back(NormalizePath(std::string(argument)));
    }
    return true;
  }

  // What looks like an option is not taken for a value: that was most likely forgotten.
  bool ReadValue(const ValueRow& row) {
    std::optional<std::string>& value = m_raw.*(row.value);
    if (value) return Fail(OLD_OPTION_TWICE, row.name);
    const char* argument = m_next < m_argc ? m_argv[m_next] : "";
    if (argument[0] == '\0' || argument[0] == '-') {
      return Fail(row.value == &RawOptions::permission ? OLD_P_NOT_OCTAL : OLD_OPTION_WITHOUT_NAME, row.name);
    }
    ++m_next;
    value = argument;
    return true;
  }

  int m_argc;
  const char* const* m_argv;
  int m_next = 1;
  RawOptions& m_raw;
  int* m_error;
  std::string* m_text;
};

// Nothing is made, so the value has no use; but a number that is none shows a mistake in the call.
bool CheckPermission(const std::string& value, int* error, std::string* text) {
  std::uint32_t permission = 0;
  const char* end = value.data() + value.size();
  const auto [stop, result] = std::from_chars(value.data(), end, permission, 8);
  if (result == std::errc::invalid_argument || stop != end) {
    return SetErrorMessage(error, text, OLD_P_NOT_OCTAL, value);
  }
  if (result != std::errc() || permission > kMaxPermission) {
    return SetErrorMessage(error, text, OLD_PERMISSION_VALUE, value);
  }
  return true;
}

bool ReadArguments(int argc, const char* const* argv, RawOptions& raw, int* error, std::string* text) {
  for (int i = 0; i < argc; ++i) {
    if (argv == nullptr || argv[i] == nullptr) {
      return SetErrorMessage(error, text, OLD_NULL_PARAMETER, std::string());
    }
  }
  if (!ArgumentReader(argc, argv, raw, error, text).ReadAll()) return false;
  for (const RuleRow& rule : kRules) {
    if (rule.broken(raw)) return SetErrorMessage(error, text, rule.code, std::string());
  }
  return !raw.permission || CheckPermission(*raw.permission, error, text);
}

// Not for 'c', which fails anyway.
void WarnOfIgnored(const RawOptions& raw) {
  if (raw.command == 'c') return;
  if (raw.absolutePaths) printIgnoredOptionWarning("-P");
  if (raw.permission) printIgnoredOptionWarning("-p");
  if (raw.compareChecksums && raw.command == 't') printIgnoredOptionWarning("V");
}

void AddIncluded(const std::string& line, std::vector<std::string>& names) {
  constexpr const char* kBlanks = " \t\v\f\r";
  const std::size_t first = line.find_first_not_of(kBlanks);
  if (first == std::string::npos || line.starts_with('#')) return;
  names.push_back(NormalizePath(line.substr(first, line.find_last_not_of(kBlanks) + 1 - first)));
}

// Expands one name of the list when it has a pattern, or when its case is not to matter.
void AddArchive(const std::string& name, bool ignoreCase, std::vector<std::string>& archives) {
  std::string directory;
  std::string file;
  SplitPath(name, directory, file);
  const std::size_t before = archives.size();
  if (ignoreCase || file.find_first_of("*?") != std::string::npos) {
    AddNamesToContainer(archives, name, ignoreCase);
  }
  // A name that nothing answers to is tried as it stands, and then reported by its own name.
  if (archives.size() == before) archives.push_back(name);
}

}  // namespace

bool GetOptions(int argc, const char* const* argv, AppData& app, int* error, std::string* text) {
  RawOptions raw;
  if (!ReadArguments(argc, argv, raw, error, text)) return false;
  WarnOfIgnored(raw);
  app.command = raw.command;
  app.verbose = raw.verbose;
  app.spaceCheck = raw.spaceCheck;
  app.compareChecksums = raw.compareChecksums;
  app.changeDirModes = !raw.keepDirModes;
  app.paths = {.flat = raw.flat, .lowerCase = raw.lowerCase, .validate = !raw.anyPath};
  app.names = std::move(raw.names);
  if (raw.archive) app.archiveName = NormalizePath(eraseCommas(*raw.archive));
  if (raw.includeFile) app.includeFile = eraseCommas(*raw.includeFile);
  if (raw.targetDir) app.targetDir = *raw.targetDir;  // a comma in it is its own: there is only one
  return true;
}

bool DoAOption(AppData& app, int* error, std::string* text) {
  if (app.includeFile.empty()) return true;
  CFileStream file(app.includeFile, kOpenRead);
  if (!file.Open()) return SetErrorMessage(error, text, OLD_SYSTEM, app.includeFile, errno);

  LineCutter cutter;
  std::string line;
  std::array<std::uint8_t, kPiece> piece;
  unsigned long done = 0;
  do {
    if (!file.Read(piece.data(), piece.size(), &done)) {
      return SetErrorMessage(error, text, OLD_SYSTEM, app.includeFile, errno);
    }
    std::span<const std::uint8_t> bytes = std::span(piece).first(done);
    LineCutter::Result result = cutter.Next(bytes, line);
    for (; result == LineCutter::Result::kLine; result = cutter.Next(bytes, line))
      AddIncluded(line, app.names);
    if (result == LineCutter::Result::kBad) {
      return SetErrorMessage(error, text, OLD_INCLUDE_FORMAT, app.includeFile);
    }
  } while (done == piece.size());
  AddIncluded(cutter.Rest(), app.names);  // the last line may lack its newline
  return true;
}

void printIgnoredOptionWarning(const std::string& option) {
  PrintLine("TOLVEN: option " + ShowText(option) +
            " not supported for archives of the old format (option ignored)");
}

std::string eraseCommas(const std::string& value) {
  std::string result = value;
  std::erase(result, ',');
  return result;
}

bool ListArchives(int argc, const char* const* argv, std::vector<std::string>& archives, int* error,
                  std::string* text) {
  RawOptions raw;
  if (!ReadArguments(argc, argv, raw, error, text)) return false;
  const std::string list = raw.archive.value_or("");
  const int exitCode = RunStatus::Current().exitCode;
  std::string name;
  try {
    for (std::size_t start = 0; start < list.size();) {
      const std::size_t end = std::min(list.find(',', start), list.size());
      name = list.substr(start, end - start);
      name.erase(0, std::min(name.find_first_not_of(' '), name.size()));
      if (!name.empty()) AddArchive(name, raw.ignoreCase, archives);
      start = end + 1;
    }
  } catch (const CStatExcept& failed) {
    // A directory entry that went away during the look-up; the number is this reader's, not the exception's.
    RunStatus::Current().exitCode = exitCode;
    return SetErrorMessage(error, text, OLD_SYSTEM, name, failed.GetNumber() - kErrorSystemBase);
  }
  return true;
}

}  // namespace tolven

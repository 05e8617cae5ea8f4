#include "cmdline/cmd_line.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cmdline/option_table.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/secret_text.h"
#include "report/show_text.h"

namespace tolven {
namespace {

void Apply(const FlagEffects& effects, CmdOptions& options) {
  for (const FlagEffect& effect : effects) {
    if (effect.member != nullptr) options.*effect.member = effect.value;
  }
}

// "S" asks for a signature; what else it means depends on the command letters before it.
void ApplySign(CmdOptions& options) {
  switch (options.command) {
    case CMD_CREATE:
    case CMD_EXTRACT:
    case CMD_APPEND:
      options.verifySignature = true;
      break;
    case CMD_NONE:
      options.command = CMD_SIGN;
      options.verifySignature = false;
      break;
    default:
      break;
  }
}

const LetterOption* FindLetter(char letter) {
  const auto letters = LetterOptions();
  const auto found = std::find_if(letters.begin(), letters.end(),
                                  [letter](const LetterOption& option) { return option.letter == letter; });
  return found == letters.end() ? nullptr : &*found;
}

const LongOption* FindLongOption(const char* argument) {
  const auto options = LongOptions();
  const auto found = std::find_if(options.begin(), options.end(), [argument](const LongOption& option) {
    return std::strcmp(option.argument, argument) == 0;
  });
  return found == options.end() ? nullptr : &*found;
}

// Fills the memory for good: a plain assignment to a string that dies next may be optimised away.
void Wipe(char* text, std::size_t length, char filler) {
  volatile char* byte = text;
  for (std::size_t i = 0; i < length; ++i) byte[i] = filler;
}

// The user and password of a URL, which a proxy may have without a scheme in front; empty when there are
// none. An "@" behind the host counts too: better too much than a password with a "/" in it.
std::string_view UserInfo(std::string_view url) {
  const std::size_t scheme = url.find("://");
  std::string_view rest = url.substr(scheme == std::string_view::npos ? 0 : scheme + 3);
  const std::size_t at = rest.rfind('@');
  return rest.substr(0, at == std::string_view::npos ? 0 : at);
}

}  // namespace

std::unique_ptr<CCmdLine> CCmdLine::m_pCmdLine;

CCmdLine* CCmdLine::GetTheCmdLine() {
  if (m_pCmdLine == nullptr) m_pCmdLine = std::make_unique<CCmdLine>();
  return m_pCmdLine.get();
}

void CCmdLine::Destroy() {
  if (m_pCmdLine != nullptr) m_pCmdLine->Reset();
  m_pCmdLine.reset();
}

void CCmdLine::Reset() {
  for (std::string& secret : m_secrets) Wipe(secret.data(), secret.size(), '\0');
  *this = CCmdLine();
}

void CCmdLine::SetOptions(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    char* argument = argv[i];
    char* next = i + 1 < argc ? argv[i + 1] : nullptr;
    bool consumed = false;
    if (const LongOption* option = FindLongOption(argument)) {
      consumed = ParseLongOption(*option, next);
    } else if (argument[0] == '-') {
      consumed = ParseLetterGroup(argument + 1, next);
    } else {
      m_names.emplace_back(argument);
      m_typedNames.emplace_back(argument);
    }
    if (consumed) ++i;
  }
}

void CCmdLine::GetOptionArg(const char*& target, const char* arg, const char* optionName) {
  const std::string name = std::string("TOLVEN: ") + optionName;
  if (target != nullptr) throw CExcept(name + ": use option only once", kErrorOptionTwice);
  if (arg == nullptr || arg[0] == '-') {
    throw CExcept(name + "-option specified without filename", kErrorOptionWithoutArgument);
  }
  target = arg;
}

bool CCmdLine::ParseLongOption(const LongOption& option, char* next) {
  switch (option.kind) {
    case OptionKind::kFlags:
      Apply(option.flags, m_options);
      return false;
    case OptionKind::kText:
      GetOptionArg(m_options.*option.text, next, option.Name());
      return true;
    case OptionKind::kPassword:
    case OptionKind::kUrl: {
      GetOptionArg(m_options.*option.text, next, option.Name());
      const std::string_view given = next;
      const std::string_view secret = option.kind == OptionKind::kUrl ? UserInfo(given) : given;
      if (secret.empty()) return true;
      m_options.*option.text = KeepSecret(given);
      Wipe(next + (secret.data() - given.data()), secret.size(), '*');
      return true;
    }
    case OptionKind::kKey: {
      GetOptionArg(m_options.*option.text, next, option.Name());
      std::string_view pin = FindPin(next);
      // The whole address is kept, without the argument: what is wiped there would be missing here.
      if (!pin.empty()) m_options.*option.text = KeepSecret(next);
      while (!pin.empty()) {
        const auto at = static_cast<std::size_t>(pin.data() - next);
        const std::size_t length = pin.size();
        Wipe(next + at, length, '*');
        pin = FindPin(next, at + length);
      }
      return true;
    }
    case OptionKind::kPermission:
      ParsePermission(next);
      return next != nullptr;
    case OptionKind::kIgnored:
      PrintLine(std::string("TOLVEN: option ") + option.argument +
                " not supported on non-Windows platforms (option ignored)");
      return false;
  }
  return false;
}

void CCmdLine::AnchorFileOptions(const std::string& directory) {
  if (directory.empty()) return;
  constexpr const char* CmdOptions::*kOptions[] = {&CmdOptions::key, &CmdOptions::securityLibrary,
                                                   &CmdOptions::crlFile, &CmdOptions::manifestFile};
  for (const char* CmdOptions::*option : kOptions) {
    const char*& text = m_options.*option;
    if (text == nullptr || text[0] == '/' || text[0] == '\0') continue;
    const bool mayBeName = option == &CmdOptions::key || option == &CmdOptions::securityLibrary;
    if (mayBeName && std::strchr(text, '/') == nullptr) continue;
    if (option == &CmdOptions::key && std::string_view(text).starts_with("pkcs11:")) continue;
    text = m_anchored.emplace_back(directory + "/" + text).c_str();
  }
}

// What is asked for must not stay in the argument vector, which other users read.
const char* CCmdLine::KeepSecret(std::string_view text) {
  return m_secrets.emplace_back(text).c_str();
}

// Read as "%o" is: blanks and a sign in front and anything behind the digits are accepted. Without a text,
// as the last argument, the option counts as not given.
void CCmdLine::ParsePermission(const char* text) {
  if (m_options.permissionText != nullptr) throw CExcept("TOLVEN: use p-option only once", kErrorOptionTwice);
  if (text == nullptr) return;
  m_options.permissionText = text;
  char* end = nullptr;
  const unsigned long value = std::strtoul(text, &end, 8);
  if (end == text) throw CExcept("TOLVEN: no octal value specified for p-option", kErrorPermission);
  m_options.permission = static_cast<std::uint32_t>(value);
}

bool CCmdLine::ParseLetterGroup(const char* arg, const char* next) {
  for (; *arg != '\0'; ++arg) {
    const LetterOption* option = FindLetter(*arg);
    if (option == nullptr) {
      throw CExcept(std::string("TOLVEN: unknown command option ") + ShowText(arg), kErrorOption);
    }
    if (option->command != CMD_NONE) m_options.command = option->command;
    Apply(option->flags, m_options);
    if (*arg == 'S') ApplySign(m_options);
    if (*arg == 'M' && m_options.command == CMD_NONE) m_options.command = CMD_VERIFY_MANIFEST;
    if (*arg == 'f') {
      // The archive takes the next argument, and whatever stands behind "f" in the group is not read.
      GetOptionArg(m_options.archiveText, next, "f");
      return true;
    }
  }
  return false;
}

}  // namespace tolven

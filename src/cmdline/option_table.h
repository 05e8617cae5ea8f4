#pragma once

#include <array>
#include <span>

#include "cmdline/cmd_line.h"

namespace tolven {

// What an option sets. Most set one flag, a few two.
struct FlagEffect {
  bool CmdOptions::*member = nullptr;
  bool value = true;
};
using FlagEffects = std::array<FlagEffect, 2>;

enum class OptionKind {
  kFlags,       // sets `flags`
  kText,        // the next argument becomes `text`
  kPassword,    // the same, and is hidden afterwards
  kUrl,         // the same, but only user and password are hidden
  kKey,         // the same, but only a PIN is hidden
  kPermission,  // the next argument is an octal number
  kIgnored,     // another platform's option: said so, and nothing else
};

// An argument of its own, compared whole.
struct LongOption {
  const char* argument;
  OptionKind kind = OptionKind::kFlags;
  FlagEffects flags{};
  const char* CmdOptions::*text = nullptr;

  // Its name in messages.
  const char* Name() const { return argument + 1; }
};

// A letter of a group such as "-cvf". "f", "M" and "S" do more than a row can say; see cmd_line.cpp.
struct LetterOption {
  char letter;
  int command = CMD_NONE;  // none: leaves the command as it is
  FlagEffects flags{};
};

std::span<const LongOption> LongOptions();
std::span<const LetterOption> LetterOptions();

}  // namespace tolven

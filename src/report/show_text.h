#pragma once

#include <string>
#include <string_view>

namespace tolven {

// Text that somebody else chose (a name, a link's target, a certificate's text, a server's answer), as it
// enters a line of output. On a terminal everything that could act on it, or pretend to be another line, is
// shown byte by byte as a backslash and three octal digits: control characters, invalid UTF-8, line and
// paragraph separators, and the characters that turn the direction of writing. Anywhere else the bytes pass
// as they are, because programs read them.
//
// A backslash stays what it is, so that names which carry one remain readable; only in front of three octal
// digits, where it would look like such an escape, it is shown as one itself.
//
// For a text of its own only, once: a composed message has line breaks that are meant.
std::string ShowText(std::string_view text);

// The same for a terminal, whatever the output is.
std::string EscapeText(std::string_view text);

// snprintf into a string, of up to 511 characters: for texts of the program's own, not for names.
std::string FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace tolven

#pragma once

#include <string>
#include <string_view>

#include "signing/manifest/manifest_context.h"

namespace tolven {

// Appends a line to the context's error text and returns `code`, so that a failing step is one statement.
//
// The category only ever rises, and 0 leaves it alone. The last error code is the first one that was
// reported, unless a later line comes with a category; a code of SMF_OK leaves it alone. When there is no
// memory for the text, the code and the category still count.
int AddError(ManifestContext& context, int code, int category, std::string_view text);

// The usual case: a step of a verification or of signing that failed. Category ERROR.
int Fail(ManifestContext& context, int code, std::string_view text);

// snprintf into a string.
std::string FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));

// before + name + after; names may hold any byte and any length that a document allows.
std::string NameText(std::string_view before, std::string_view name, std::string_view after);

}  // namespace tolven

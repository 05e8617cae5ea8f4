#include "signing/manifest/manifest_errors.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "report/show_text.h"

namespace tolven {

int AddError(ManifestContext& context, int code, int category, std::string_view text) {
  if (code != SMF_OK && (context.errorCode == SMF_OK || category != MANIFEST_CATEGORY_NONE))
    context.errorCode = code;
  context.errorCategory = std::max(context.errorCategory, category);
  try {
    if (context.errorText.empty()) {
      context.errorText = text;
    } else {
      context.errorText.append("\n").append(text);
    }
  } catch (const std::bad_alloc&) {
    // The numbers say enough.
  }
  return code;
}

int Fail(ManifestContext& context, int code, std::string_view text) {
  return AddError(context, code, MANIFEST_CATEGORY_ERROR, text);
}

std::string FormatText(const char* format, ...) {
  char text[512];  // no format of this folder comes near it without a name, and names go through NameText
  std::va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

std::string NameText(std::string_view before, std::string_view name, std::string_view after) {
  std::string text;
  text.reserve(before.size() + name.size() + after.size());
  return text.append(before).append(ShowText(name)).append(after);
}

const char* ManifestErrorName(int code) {
  return SmfCodeName(code);
}

std::string ManifestDkvErrorName(int code) {
  return DkvCodeName(code);
}

int ManifestLastErrorCode(const ManifestContext* context) {
  return ContextOf(context).errorCode;
}

int ManifestLastDkvErrorCode(const ManifestContext* context) {
  return ContextOf(context).dkvErrorCode;
}

const std::string& ManifestGetLastError(const ManifestContext* context) {
  return ContextOf(context).errorText;
}

int ManifestGetErrorCategory(const ManifestContext* context) {
  const ManifestContext& c = ContextOf(context);
  return c.errorText.empty() ? MANIFEST_CATEGORY_NONE : c.errorCategory;
}

const char* ManifestGetErrorCategoryName(const ManifestContext* context) {
  switch (ManifestGetErrorCategory(context)) {
    case MANIFEST_CATEGORY_LOGGABLE_WARNING:
      return "LOGGABLE_WARNING";
    case MANIFEST_CATEGORY_WARNING:
      return "WARNING";
    case MANIFEST_CATEGORY_ERROR:
      return "ERROR";
    default:
      return "";
  }
}

}  // namespace tolven

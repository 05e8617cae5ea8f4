#include "report/code_names.h"

#include <array>
#include <cstddef>

namespace tolven {
namespace {

// Indexed by code: the enumeration counts from 0 without gaps.
constexpr std::array kSmfNames = {
    "SMF_OK",
    "SMF_ERROR",
    "SMF_ENOMEM",
    "SMF_EINVARG",
    "SMF_ENOTIMPL",
    "SMF_EINTERNAL",
    "SMF_EINIT",
    "SMF_EEOL",
    "SMF_ESIGNATURE",
    "SMF_EDKVLIB",
    "SMF_EDIGEST",
    "SMF_EDIGESTLIB",
    "SMF_ELIBRARY",
    "SMF_EENCODE",
    "SMF_EDECODE",
    "SMF_ECONV",
    "SMF_EPARSE",
    "SMF_EFILENOTFOUND",
    "SMF_EBODY_NOT_EQUAL",
    "SMF_ETSA",
    "SMF_ECRL",
    "SMF_ECRL_REVOKED",
    "SMF_ECRL_MISSING",
    "SMF_ECRL_OUTDATED",
    "SMF_ESIGNATURE_EXTERNAL",
    "SMF_ESIGNATURE_VALIDATION",
    "SMF_ESIGNATURE_UNKNOWN",
};
static_assert(kSmfNames.size() == SMF_ESIGNATURE_UNKNOWN + 1);

DkvNameResolver g_dkvNames = nullptr;

}  // namespace

const char* SmfCodeName(int code) {
  if (code < 0 || static_cast<std::size_t>(code) >= kSmfNames.size()) return "SMF_UNKNOWN_ERROR";
  return kSmfNames[static_cast<std::size_t>(code)];
}

void SetDkvNameResolver(DkvNameResolver resolver) {
  g_dkvNames = resolver;
}

std::string DkvCodeName(int code) {
  const char* name = g_dkvNames == nullptr ? nullptr : g_dkvNames(code);
  return name == nullptr ? std::to_string(code) : std::string(name);
}

}  // namespace tolven

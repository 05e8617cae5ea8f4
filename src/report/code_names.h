#pragma once

#include <string>

namespace tolven {

// Result codes of the manifest library. The numbers reach the user through messages: do not change them.
enum SmfCode : int {
  SMF_OK = 0,
  SMF_ERROR = 1,
  SMF_ENOMEM = 2,
  SMF_EINVARG = 3,
  SMF_ENOTIMPL = 4,
  SMF_EINTERNAL = 5,
  SMF_EINIT = 6,
  SMF_EEOL = 7,
  SMF_ESIGNATURE = 8,
  SMF_EDKVLIB = 9,
  SMF_EDIGEST = 10,
  SMF_EDIGESTLIB = 11,
  SMF_ELIBRARY = 12,
  SMF_EENCODE = 13,
  SMF_EDECODE = 14,
  SMF_ECONV = 15,
  SMF_EPARSE = 16,
  SMF_EFILENOTFOUND = 17,
  SMF_EBODY_NOT_EQUAL = 18,
  SMF_ETSA = 19,
  SMF_ECRL = 20,
  SMF_ECRL_REVOKED = 21,
  SMF_ECRL_MISSING = 22,
  SMF_ECRL_OUTDATED = 23,
  SMF_ESIGNATURE_EXTERNAL = 24,
  SMF_ESIGNATURE_VALIDATION = 25,
  SMF_ESIGNATURE_UNKNOWN = 26,
};

// "SMF_OK" ...; "SMF_UNKNOWN_ERROR" for any other value.
const char* SmfCodeName(int code);

// The cryptographic library names its own codes. The binding installs its resolver once the library is loaded
// (null takes it away); it returns null for a code it has no name for.
using DkvNameResolver = const char* (*)(int code);
void SetDkvNameResolver(DkvNameResolver resolver);

// The library's name of its return code; the decimal number when no library is loaded or it has no name.
std::string DkvCodeName(int code);

}  // namespace tolven

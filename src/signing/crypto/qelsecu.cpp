#include "signing/crypto/qelsecu.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "signing/crypto/dkv.h"
#include "signing/crypto/dkv_loader.h"
#include "signing/crypto/trace.h"

namespace tolven {
namespace {

// In the order in which they are resolved. The first kRequired belong together: without one of them the
// certificate helpers are of no use, and that is an error; the later ones are extras.
constexpr std::array kNames = {
    "qelcr_init",
    "qelcr_done",
    "aux_sprint_DName",
    "aux_sprint_Validity",
    "aux_sprint_Serialnumber",
    "aux_free_String",
    "aux_free_Certificate",
    "d_Certificate",
    "qel_secin",
    "qel_seclogin",
    "sec_open",
    "sec_close",
    "sec_chpin",
    "aux_Name2DName",
    "aux_free_DName",
    "qelsecu_parseobject",
    "qelsecu_decode_cert",
    "qelsecu_create_CertEntryList",
    "qelsecu_sprint_CertEntryList",
    "qelsecu_free_CertEntryList",
    "qelsecu_DName2CertEntryList",
    "qelsecu_KorvexName2CertEntryList",
    "qelsecu_Name2CertEntryList",
    "aux_get_subject_of_Certificate",
    "aux_get_issuer_of_Certificate",
    "aux_get_serialnumber_of_Certificate",
    "aux_get_validity_of_Certificate",
    "qelcr_set_property_int",
    "qelcr_get_property_int",
    "Qelcryptolib_RegisterTraceCallback",
    "Qelcryptolib_UnregisterTraceCallback",
    "Qelcryptolib_SetTraceLevel",
};
constexpr std::size_t kRequired = 16;
constexpr int kLevelError = 1;
constexpr int kLevelDetail = 2;

struct HelperTable {
  std::array<void*, kNames.size()> functions{};
  void* library = nullptr;
  bool ownsLibrary = false;
  QelSecuState state = QelSecuState::kUnloaded;
  int traceLevel = 0;
};

HelperTable table;

void* Find(const char* name) {
  const auto at = std::find_if(kNames.begin(), kNames.end(),
                               [name](const char* entry) { return std::strcmp(entry, name) == 0; });
  return at == kNames.end() ? nullptr : table.functions[static_cast<std::size_t>(at - kNames.begin())];
}

// The prototype comes from the published header, so the cast cannot drift away from it.
template <typename Function>
Function* FindAs(const char* name) {
  return reinterpret_cast<Function*>(Find(name));
}

void QelSecu_LoadFunctions(void* library) {
  table.library = library;
  table.state = QelSecuState::kAllLoaded;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    table.functions[i] = dlsym(library, kNames[i]);
    if (table.functions[i] != nullptr) {
      DkvTrace(kLevelDetail, "%.32s(): loaded function >%.256s<.\n", __func__, kNames[i]);
      continue;
    }
    table.state = QelSecuState::kSomeMissing;
    DkvTrace(i < kRequired ? kLevelError : kLevelDetail, "%.32s(): could not load function >%.256s<.\n",
             __func__, kNames[i]);
  }
  if (auto* call =
          FindAs<decltype(::Qelcryptolib_RegisterTraceCallback)>("Qelcryptolib_RegisterTraceCallback")) {
    call(&VantaCryptoLib_Trace_Callback);
    QelSecu_SetTraceLevel(table.traceLevel);
  }
}

}  // namespace

bool QelSecu_Init(const char* libraryName) {
  if (QelSecu_IsDlHandle()) return false;
  void* library = OpenDkvLibrary(libraryName);
  if (library == nullptr) return false;
  QelSecu_LoadFunctions(library);
  table.ownsLibrary = true;
  return true;
}

void QelSecu_ExernalInit(void* library) {
  QelSecu_Exit();
  if (library != nullptr) QelSecu_LoadFunctions(library);
}

void QelSecu_Exit() {
  if (!QelSecu_IsDlHandle()) return;
  if (auto* call =
          FindAs<decltype(::Qelcryptolib_UnregisterTraceCallback)>("Qelcryptolib_UnregisterTraceCallback")) {
    call();
  }
  if (table.ownsLibrary) dlclose(table.library);
  const int level = table.traceLevel;
  table = HelperTable{};
  table.traceLevel = level;
}

bool QelSecu_IsDlHandle() {
  return table.library != nullptr;
}

bool QelSecu_UsesLibrary(const void* library) {
  return library != nullptr && table.library == library;
}

QelSecuState QelSecu_State() {
  return table.state;
}

bool QelSecu_HasFunction(const char* name) {
  return Find(name) != nullptr;
}

void QelSecu_SetTraceLevel(int level) {
  table.traceLevel = level;
  if (auto* call = FindAs<decltype(::Qelcryptolib_SetTraceLevel)>("Qelcryptolib_SetTraceLevel")) call(level);
}

}  // namespace tolven

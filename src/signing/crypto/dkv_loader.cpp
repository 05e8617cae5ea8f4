#include "signing/crypto/dkv_loader.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>

#include "report/code_names.h"
#include "signing/crypto/qelsecu.h"
#include "signing/crypto/secudir.h"

#ifndef TOLVEN_PRIVATE_LIBRARY_DIR
#define TOLVEN_PRIVATE_LIBRARY_DIR "../lib/tolven"
#endif

namespace tolven {
namespace {

// The directory of the file this code is part of: the program, or the shared object that embeds it. The
// dynamic linker knows a shared object's path; it gives the program itself an empty one.
std::filesystem::path OwnDirectory() {
  std::error_code error;
  Dl_info info{};
  void* extra = nullptr;
  const void* here = reinterpret_cast<const void*>(&OpenDkvLibrary);
  if (dladdr1(here, &info, &extra, RTLD_DL_LINKMAP) != 0 && extra != nullptr) {
    const char* object = static_cast<const link_map*>(extra)->l_name;
    if (object != nullptr && object[0] != '\0') {
      return std::filesystem::canonical(object, error).parent_path();
    }
  }
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

void* Open(const std::string& name) {
  return dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
}

constexpr char kFipsProperty[] = "FIPS_140_2_CRYPTO_KERNEL_ACTIVE";

bool fipsWanted = false;
bool fipsActive = false;
// Answers for names of codes; the library loaded last.
const DkvTable* current = nullptr;

std::map<std::string, DkvTable>& ProcessTables() {
  static std::map<std::string, DkvTable> tables;
  return tables;
}

// The two callbacks of one load.
class Reporter {
 public:
  Reporter(DkvErrorCallback error, DkvMessageCallback message) : m_error(error), m_message(message) {}

  template <typename... Args>
  void Say(const char* format, Args... args) const {
    if (m_message == nullptr) return;
    char text[640];  // the longest format with its 500 characters of a name
    std::snprintf(text, sizeof text, format, args...);
    m_message(text);
  }
  void Fail(int result, const char* name) const {
    if (m_error != nullptr) m_error(result, name);
  }

 private:
  DkvErrorCallback m_error;
  DkvMessageCallback m_message;
};

// True iff every admitted row was found.
bool ResolveRows(DkvTable& table, unsigned level, const Reporter& report) {
  bool complete = true;
  for (std::size_t i = 0; i < kDkvRowCount; ++i) {
    if (!DkvLevelAdmits(level, kDkvRows[i].level)) continue;
    table.functions[i] = reinterpret_cast<DkvAnyFunction>(dlsym(table.library, kDkvRows[i].name));
    table.loaded[i] = table.functions[i] != nullptr;
    if (table.loaded[i]) {
      report.Say("===...%.500s loaded successfully.\n", kDkvRows[i].name);
    } else {
      complete = false;
      report.Say("===... could not load function %.500s from DKV library.\n", kDkvRows[i].name);
      report.Fail(kDkvFunctionsMissing, kDkvRows[i].name);
    }
  }
  for (std::size_t i = 0; i < kQelSslRowCount; ++i) {
    table.tls[i] = reinterpret_cast<DkvAnyFunction>(dlsym(table.library, kQelSslRows[i]));
  }
  return complete;
}

void SetFips(const DkvTable& table, const Reporter& report) {
  if (!fipsWanted) return;
  const int rc = DkvLibSetPropertyInt(&table, kFipsProperty, 1);
  if (rc == DKV_OK) return;
  report.Say("\n===...qelcr_set_property_int in DKV library failed RC=%d\n\n", rc);
  report.Fail(rc, "qelcr_set_property_int");
}

// A library without qelcr_init needs none.
bool Start(const DkvTable& table, const char* libraryName, const Reporter& report) {
  SetFips(table, report);
  if (table.Get(DkvRow::qelcr_init) != nullptr) {
    const int rc = DkvLibInit(&table);
    if (rc != DKV_OK) {
      report.Say("\n===...DKV could not initialize using qelcr_init in library %.500s . RC=%d\n\n",
                 libraryName, rc);
      report.Fail(kDkvNotLoaded, libraryName);
      return false;
    }
  }
  int value = 0;
  fipsActive = DkvLibGetPropertyInt(&table, kFipsProperty, &value) == DKV_OK && value != 0;
  return true;
}

void Unload(DkvTable& table) {
  dlclose(table.library);
  table = DkvTable{};
}

bool QueryProperties(const DkvTable* table, DkvProperties* properties) {
  *properties = DkvProperties{};
  properties->size = sizeof *properties;
  return DkvLibQueryProperties(table, properties) == DKV_OK;
}

template <typename Function>
const char* AskCurrent(DkvRow row, int code) {
  if (current == nullptr) return nullptr;
  const DkvAnyFunction function = current->Get(row);
  return function == nullptr ? nullptr : reinterpret_cast<Function*>(function)(code);
}

}  // namespace

void* OpenDkvLibrary(const char* libraryName) {
  const std::string name = libraryName == nullptr ? "" : libraryName;
  // dlopen takes an empty name for the program itself, which is no library of ours.
  if (name.empty()) return nullptr;
  if (name.find('/') != std::string::npos) return Open(name);

  // Our own places come before LD_LIBRARY_PATH and the system's directories, which dlopen would ask first.
  const std::filesystem::path own = OwnDirectory();
  if (!own.empty()) {
    for (const auto& directory : {own, own / TOLVEN_PRIVATE_LIBRARY_DIR}) {
      const std::string path = (directory / name).string();
      if (access(path.c_str(), F_OK) == 0) return Open(path);
    }
  }
  return Open(name);
}

int DkvSupInitEx(const char* libraryName, DkvTable* table, DkvErrorCallback errorCallback,
                 DkvMessageCallback messageCallback, unsigned level) {
  const Reporter report(errorCallback, messageCallback);
  if (table == nullptr) return kDkvNotLoaded;
  if (table->state == DkvTableState::kLoaded) return kDkvAlreadyLoaded;
  const char* name = libraryName == nullptr ? "" : libraryName;
  Set_SECUDIR_Path(messageCallback);

  *table = DkvTable{};
  table->library = OpenDkvLibrary(name);
  if (table->library == nullptr) {
    report.Say("\n===...could not load DKV library %.500s .\n\n", name);
    report.Fail(kDkvNotLoaded, name);
    return kDkvNotLoaded;
  }
  report.Say("\n===...DKV library %.500s loaded successfully.\n", name);
  const bool complete = ResolveRows(*table, level, report);
  if (!Start(*table, name, report)) {
    Unload(*table);
    return kDkvNotLoaded;
  }
  QelSecu_ExernalInit(table->library);
  table->state = DkvTableState::kLoaded;
  current = table;
  SetDkvNameResolver(&DkvErrorName);
  return complete ? kDkvReady : kDkvFunctionsMissing;
}

void DkvSupEnd(DkvTable* table) {
  if (table == nullptr || table->state != DkvTableState::kLoaded) return;
  if (current == table) {
    current = nullptr;
    SetDkvNameResolver(nullptr);
  }
  if (QelSecu_UsesLibrary(table->library)) QelSecu_Exit();
  // Older libraries, and other makers', end with their unloading.
  int version = 0;
  int patchLevel = 0;
  if (DkvSupToolkitIsQELCrypto(table) && DkvSupToolkitVersion(table, &version, &patchLevel) && version >= 8) {
    DkvLibDone(table);
  }
  Unload(*table);
}

DkvTable* DkvSupProcessTable(const char* libraryName) {
  return &ProcessTables()[libraryName == nullptr ? "" : libraryName];
}

void DkvSupEndAll() {
  for (auto& [name, table] : ProcessTables()) DkvSupEnd(&table);
}

void DkvSupConfigureFips(bool active) {
  fipsWanted = active;
}

bool DkvSupFipsActive() {
  return fipsActive;
}

bool DkvSupToolkitIsQELCrypto(const DkvTable* table) {
  DkvProperties properties;
  return QueryProperties(table, &properties) && properties.maker != nullptr &&
         std::strcmp(properties.maker, "QELCRYPTOLIB") == 0;
}

bool DkvSupToolkitVersion(const DkvTable* table, int* version, int* patchLevel) {
  DkvProperties properties;
  const bool known = QueryProperties(table, &properties);
  *version = known ? properties.version : 0;
  *patchLevel = known ? properties.patchLevel : 0;
  return known;
}

std::string DkvSupToolkitVersionString(const DkvTable* table) {
  const char* text = nullptr;
  return DkvLibVersion(table, &text) == DKV_OK && text != nullptr ? text : "";
}

std::string DkvSupGetVantaCryptoLibVersionString(const DkvTable* table) {
  DkvProperties properties;
  if (!DkvSupToolkitIsQELCrypto(table) || !QueryProperties(table, &properties)) {
    return DkvSupToolkitVersionString(table);
  }
  return std::string(properties.maker) + " " + DkvSupToolkitVersionString(table);
}

const char* DkvErrorName(int code) {
  return AskCurrent<decltype(::DkvRcName)>(DkvRow::DkvRcName, code);
}

const char* DkvErrorDescription(int code) {
  return AskCurrent<decltype(::DkvRcDesc)>(DkvRow::DkvRcDesc, code);
}

}  // namespace tolven

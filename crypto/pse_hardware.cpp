// The engine interface is marked deprecated, but the only packaged way to a token is an engine.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/store.h>
#include <openssl/ui.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>

#include "api.h"
#include "pse_file.h"

// Keys in tokens (PKCS#11), named by RFC 7512: through a provider "pkcs11" and OpenSSL's stores where there
// is one, else through the engine of that name.
namespace tolven::crypto {
namespace {

using CtxPtr = std::shared_ptr<OSSL_LIB_CTX>;
using StorePtr = std::unique_ptr<OSSL_STORE_CTX, Releaser<OSSL_STORE_close>>;
using StoreInfoPtr = std::unique_ptr<OSSL_STORE_INFO, Releaser<OSSL_STORE_INFO_free>>;
using UiMethodPtr = std::unique_ptr<UI_METHOD, Releaser<UI_destroy_method>>;

int HexDigit(char digit) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const std::size_t at = kDigits.find(digit >= 'A' && digit <= 'F' ? static_cast<char>(digit + 32) : digit);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  while (!text.empty()) {
    const int high = text[0] == '%' && text.size() > 2 ? HexDigit(text[1]) : -1;
    const int low = high < 0 ? -1 : HexDigit(text[2]);
    decoded.push_back(low < 0 ? text[0] : static_cast<char>(high * 16 + low));
    text.remove_prefix(low < 0 ? 1 : 3);
  }
  return decoded;
}

std::string_view Cut(std::string_view& text, char separator) {
  const std::size_t at = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return part;
}

struct Address {
  std::string
      object;  // "pkcs11:" and what names the key, without its type: the certificate is asked for, too
  std::map<std::string, std::string> query;
};

Address ParseUri(std::string_view uri) {
  Address address{"pkcs11:", {}};
  uri.remove_prefix(address.object.size());
  std::string_view path = Cut(uri, '?');
  while (!path.empty()) {
    const std::string_view attribute = Cut(path, ';');
    if (attribute.starts_with("type=")) continue;
    if (!address.object.ends_with(':')) address.object += ';';
    address.object += attribute;
  }
  while (!uri.empty()) {
    std::string_view attribute = Cut(uri, '&');
    const std::string name(Cut(attribute, '='));
    address.query[name] = PercentDecoded(attribute);
  }
  return address;
}

// Only a file: the other thing that RFC 7512 lets pin-source name is a command.
std::string PinFromFile(std::string path) {
  constexpr std::string_view kScheme = "file:";
  if (path.starts_with(kScheme)) path.erase(0, kScheme.size());
  if (path.starts_with("//")) path.erase(0, 2);
  if (!path.starts_with('/')) {
    throw Failure(DKV_ERR_PASSWORD, "pin-source", "pin-source must name a file by its full path.");
  }
  const Secret content = ReadPseFile(path);
  const auto end = std::find(content.bytes.begin(), content.bytes.end(), '\n');
  return {content.bytes.begin(), end};
}

std::string FindPin(const Address& address, const char* password) {
  if (password != nullptr && password[0] != '\0') return password;
  if (const auto at = address.query.find("pin-value"); at != address.query.end()) return at->second;
  if (const auto at = address.query.find("pin-source"); at != address.query.end()) {
    return PinFromFile(at->second);
  }
  return {};
}

// What went wrong in a module it says itself, in words of its own ("PIN incorrect").
[[noreturn]] void FailInModule(const char* where, bool pinGiven) {
  std::string said;
  bool pin = false;
  const char* data = nullptr;
  int flags = 0;
  while (const unsigned long error = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags)) {
    const char* reason = ERR_reason_error_string(error);
    Trace(kTraceError, "pkcs11: %s %s", reason == nullptr ? "" : reason, data == nullptr ? "" : data);
    if (reason == nullptr) continue;
    if (said.empty()) said = std::string("The module says: ") + reason + ".";
    pin = pin || std::strstr(reason, "PIN") != nullptr;
  }
  if (pin || !pinGiven) {
    throw Failure(DKV_ERR_PASSWORD, where, pinGiven ? said : "The PIN of the token is its password.");
  }
  throw Failure(DKV_ERR_MODULE, where, said);
}

// --- A provider.

int GivePin(char* buffer, int size, int /*writing*/, void* user) {
  const auto& pin = *static_cast<const std::string*>(user);
  if (pin.empty() || pin.size() > static_cast<std::size_t>(size)) return -1;
  std::memcpy(buffer, pin.data(), pin.size());
  return static_cast<int>(pin.size());
}

Pse ReadStore(CtxPtr context, const std::string& uri, std::string pin) {
  const UiMethodPtr ui(UI_UTIL_wrap_read_pem_callback(GivePin, 0));
  const StorePtr store(
      OSSL_STORE_open_ex(uri.c_str(), context.get(), nullptr, ui.get(), &pin, nullptr, nullptr, nullptr));
  Pse pse;
  pse.context = std::move(context);
  while (store != nullptr && OSSL_STORE_eof(store.get()) == 0) {
    const StoreInfoPtr info(OSSL_STORE_load(store.get()));
    if (info == nullptr) {
      if (OSSL_STORE_error(store.get()) == 1) break;
      continue;
    }
    if (OSSL_STORE_INFO_get_type(info.get()) == OSSL_STORE_INFO_CERT) {
      pse.further.emplace_back(OSSL_STORE_INFO_get1_CERT(info.get()));
    } else if (OSSL_STORE_INFO_get_type(info.get()) == OSSL_STORE_INFO_PKEY && !pse.key) {
      pse.key.reset(OSSL_STORE_INFO_get1_PKEY(info.get()));
    }
  }
  OPENSSL_cleanse(pin.data(), pin.size());
  if (!pse.key && pse.further.empty()) FailInModule("store", !pin.empty());
  return pse;
}

// --- The engine.

class TokenEngine {
 public:
  explicit TokenEngine(const std::string& module) {
    if (!module.empty() && access(module.c_str(), R_OK) != 0) {
      throw Failure(DKV_ERR_MODULE, "module", module + ": " + std::strerror(errno) + ".");
    }
    OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
    m_engine = ENGINE_by_id("pkcs11");
    if (m_engine == nullptr) {
      ERR_clear_error();
      throw Failure(DKV_ERR_MODULE, "engine",
                    "OpenSSL has neither a provider nor an engine \"pkcs11\"; the package "
                    "libengine-pkcs11-openssl brings one.");
    }
    // What it has to say and to ask it must not say and ask on the terminal.
    ENGINE_ctrl_cmd_string(m_engine, "QUIET", nullptr, 1);
    ENGINE_ctrl_cmd(m_engine, "SET_USER_INTERFACE", 0, const_cast<UI_METHOD*>(UI_null()), nullptr, 1);
    if ((!module.empty() && !Control("MODULE_PATH", module)) || ENGINE_init(m_engine) != 1) {
      ENGINE_free(m_engine);
      FailInModule("module", true);
    }
  }
  ~TokenEngine() {
    ENGINE_finish(m_engine);
    ENGINE_free(m_engine);
  }
  TokenEngine(const TokenEngine&) = delete;
  TokenEngine& operator=(const TokenEngine&) = delete;

  // Null when the token has none of that name.
  CertPtr Certificate(const std::string& uri) const {
    struct {
      const char* uri;
      X509* certificate;
    } request = {uri.c_str(), nullptr};
    ENGINE_ctrl_cmd(m_engine, "LOAD_CERT_CTRL", 0, &request, nullptr, 1);
    ERR_clear_error();
    return CertPtr(request.certificate);
  }
  // The PIN goes to the token once: a wrong one counts there.
  KeyPtr Key(const std::string& uri, const std::string& pin) const {
    if (!pin.empty() && !Control("PIN", pin)) return nullptr;
    return KeyPtr(ENGINE_load_private_key(m_engine, uri.c_str(), const_cast<UI_METHOD*>(UI_null()), nullptr));
  }

 private:
  bool Control(const char* command, const std::string& value) const {
    return ENGINE_ctrl_cmd_string(m_engine, command, value.c_str(), 0) == 1;
  }

  ENGINE* m_engine = nullptr;
};

Pse ReadEngine(const Address& address, const std::string& pin, PseUse use) {
  const auto module = address.query.find("module-path");
  const TokenEngine engine(module == address.query.end() ? "" : module->second);
  Pse pse;
  CertPtr certificate = engine.Certificate(address.object);
  // Whoever only wants to trust needs no PIN, when the token shows the certificate to everybody.
  if (use != PseUse::kTrust || !certificate) {
    pse.key = engine.Key(address.object, pin);
    if (!pse.key) FailInModule("key", !pin.empty());
    if (!certificate) certificate = engine.Certificate(address.object);
  }
  if (certificate) pse.further.push_back(std::move(certificate));
  return pse;
}

// --- Certificates beside the token.

// Those of every profile in SECUDIR: for a key in a token nothing but the certificate need lie there.
Certs CertificatesOfSecudir() {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(SecudirPath("."), error)) {
    if (entry.path().extension() == ".pse") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  Certs certificates;
  for (const std::string& file : files) {
    try {
      const Secret content = ReadPseFile(file);
      if (!IsPem(content)) continue;
      for (CertPtr& certificate : ReadPem(content, nullptr, PseUse::kTrust).further) {
        certificates.push_back(std::move(certificate));
      }
    } catch (const Failure& failure) {  // somebody else's trouble
      Trace(kTraceDetail, "%s: %s", file.c_str(), failure.what());
      ERR_clear_error();
    }
  }
  return certificates;
}

bool BelongsTo(EVP_PKEY* key, const Certs& certificates) {
  const bool found = std::any_of(certificates.begin(), certificates.end(), [key](const CertPtr& certificate) {
    return X509_check_private_key(certificate.get(), key) == 1;
  });
  ERR_clear_error();
  return found;
}

}  // namespace

Pse ReadHardware(const std::string& uri, const char* password, PseUse use) {
  const Address address = ParseUri(uri);
  std::string pin = FindPin(address, password);
  CtxPtr context = ContextWith("pkcs11");
  Pse pse =
      context != nullptr ? ReadStore(std::move(context), address.object, pin) : ReadEngine(address, pin, use);
  OPENSSL_cleanse(pin.data(), pin.size());
  if (!pse.key) return pse;
  Certs installed = CertificatesOfSecudir();
  if (use == PseUse::kTrust) {
    // The key's own certificate and no other: what else lies in SECUDIR was not named.
    std::erase_if(installed, [&](const CertPtr& certificate) {
      return X509_check_private_key(certificate.get(), pse.key.get()) != 1;
    });
    ERR_clear_error();
  }
  for (CertPtr& certificate : installed) pse.further.push_back(std::move(certificate));
  if (!BelongsTo(pse.key.get(), pse.further)) {
    throw Failure(DKV_ERR_PSE_NO_CERT, "certificate",
                  "Neither the token nor a file *.pse in SECUDIR has the certificate of this key.");
  }
  return pse;
}

}  // namespace tolven::crypto

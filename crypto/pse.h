#pragma once

#include <memory>
#include <string>

#include "openssl.h"

namespace tolven::crypto {

// A profile in memory.
struct Pse {
  std::shared_ptr<OSSL_LIB_CTX> context;  // of a key that lives in a provider of its own, else null
  KeyPtr key;                             // null in a trust file, or when nobody asked for it
  CertPtr own;                            // the key's certificate; null in a trust file
  Certs further;                          // the chain and whatever else is trusted
};

enum class PseUse {
  kTrust,         // certificates only: no PEM key is decrypted, so no password is needed for one
  kSign,          // key and certificate, or failure
  kKeyIfPresent,  // both when there is a key
};

// Reads a profile. Fails with DKV_ERR_NO_PSE, _PSE_READ, _PASSWORD, _PSE_FORMAT, _PSE_NO_KEY, _PSE_NO_CERT,
// _ALG_NOT_SUPPORTED, _MODULE. password may be null.
Pse LoadPse(const std::string& name, const char* password, PseUse use);

// True iff SECUDIR has a profile of that name, good or bad.
bool HasPse(const std::string& name);

}  // namespace tolven::crypto

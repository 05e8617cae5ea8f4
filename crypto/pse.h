#pragma once

#include <string>

#include "openssl.h"

namespace tolven::crypto {

// A profile in memory.
struct Pse {
  KeyPtr key;     // null in a trust file, or when nobody asked for it
  CertPtr own;    // the key's certificate; null in a trust file
  Certs further;  // the chain and whatever else is trusted
};

enum class PseUse {
  kTrust,         // certificates only: no PEM key is decrypted, so no password is needed for one
  kSign,          // key and certificate, or failure
  kKeyIfPresent,  // both when there is a key
};

// The file a profile name stands for, see dkv.h; empty when a plain name is given and SECUDIR is not set.
std::string PsePath(const std::string& name);

// Reads a profile. Fails with DKV_ERR_NO_PSE, _PASSWORD, _PSE_FORMAT, _PSE_NO_KEY, _PSE_NO_CERT. password may
// be null.
Pse LoadPse(const std::string& name, const char* password, PseUse use);

}  // namespace tolven::crypto

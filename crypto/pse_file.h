#pragma once

#include <string>
#include <vector>

#include "pse.h"

namespace tolven::crypto {

// Bytes of a profile, which may hold a key in the clear.
struct Secret {
  std::vector<std::uint8_t> bytes;
  Secret() = default;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  Secret(Secret&&) = default;
  Secret& operator=(Secret&&) = default;
  ~Secret();
};

// A file of the directory SECUDIR; empty when that is not set.
std::string SecudirPath(const std::string& fileName);
// The file a profile name stands for, see dkv.h. Fails with DKV_ERR_NO_PSE, which says where it looked.
std::string PsePath(const std::string& name);
// Fails with DKV_ERR_NO_PSE, DKV_ERR_PSE_READ, DKV_ERR_PSE_FORMAT.
Secret ReadPseFile(const std::string& path);

// The readers of the formats. They find the key and all certificates, in the order of the file; which one is
// the key's own is not theirs to say. `password` may be null.
bool IsPem(const Secret& content);
Pse ReadPem(const Secret& content, const char* password, PseUse use);
Pse ReadPkcs12(const Secret& content, const char* password);
// The same for a key in a token; `uri` begins with "pkcs11:".
Pse ReadHardware(const std::string& uri, const char* password, PseUse use);

}  // namespace tolven::crypto

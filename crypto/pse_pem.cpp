#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "api.h"
#include "pse_file.h"

namespace tolven::crypto {
namespace {

BioPtr MemoryBio(const Secret& content) {
  BioPtr bio(BIO_new_mem_buf(content.bytes.data(), static_cast<int>(content.bytes.size())));
  if (!bio) throw std::bad_alloc();
  return bio;
}

// Always given, because OpenSSL would ask on the terminal otherwise.
int PasswordCallback(char* buffer, int size, int /*writing*/, void* user) {
  const char* password = static_cast<const char*>(user);
  if (password == nullptr) return -1;
  const std::size_t length = std::strlen(password);
  if (length > static_cast<std::size_t>(size)) return -1;
  std::memcpy(buffer, password, length);
  return static_cast<int>(length);
}

// One block of a PEM file.
struct PemBlock {
  std::string name;
  bool encrypted = false;
  std::string cipher;  // of the old kind of encryption, which names it in front of the data
  Secret data;
};

std::string CipherOf(std::string_view header) {
  constexpr std::string_view kMark = "DEK-Info: ";
  const std::size_t at = header.find(kMark);
  if (at == std::string_view::npos) return {};
  header.remove_prefix(at + kMark.size());
  return std::string(header.substr(0, header.find_first_of(",\n")));
}

// Nothing at the end of the file.
std::optional<PemBlock> NextBlock(BIO* bio) {
  char* name = nullptr;
  char* header = nullptr;
  unsigned char* data = nullptr;
  long length = 0;
  if (PEM_read_bio(bio, &name, &header, &data, &length) != 1) {
    const bool end = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    ERR_clear_error();
    // A damaged block must not be overlooked: what follows it might be the certificate that withdraws trust.
    if (!end) throw Failure(DKV_ERR_PSE_FORMAT, "PEM");
    return std::nullopt;
  }
  PemBlock block;
  block.name = name;
  block.encrypted = std::strstr(header, "ENCRYPTED") != nullptr || block.name == "ENCRYPTED PRIVATE KEY";
  block.cipher = CipherOf(header);
  block.data.bytes.assign(data, data + length);
  OPENSSL_free(name);
  OPENSSL_free(header);
  OPENSSL_clear_free(data, static_cast<std::size_t>(length));
  return block;
}

bool IsKeyBlock(const std::string& name) {
  return std::string_view(name).ends_with("PRIVATE KEY");
}

using CipherPtr = std::unique_ptr<EVP_CIPHER, Releaser<EVP_CIPHER_free>>;

KeyPtr ReadPemKey(const Secret& content, const char* password, bool encrypted) {
  const BioPtr bio = MemoryBio(content);
  // The callback only reads its argument.
  KeyPtr key(PEM_read_bio_PrivateKey(bio.get(), nullptr, PasswordCallback, const_cast<char*>(password)));
  if (key) return key;
  if (const std::string algorithm = UnsupportedAlgorithm(); !algorithm.empty()) throw Unsupported(algorithm);
  throw Failure(encrypted ? DKV_ERR_PASSWORD : DKV_ERR_PSE_FORMAT, "private key");
}

struct PemContent {
  Certs certificates;
  int keys = 0;
  bool encrypted = false;
  std::string cipher;
};

PemContent ReadPemBlocks(const Secret& content) {
  PemContent pem;
  const BioPtr bio = MemoryBio(content);
  while (const auto block = NextBlock(bio.get())) {
    if (block->name == PEM_STRING_X509 || block->name == PEM_STRING_X509_OLD) {
      const unsigned char* at = block->data.bytes.data();
      CertPtr certificate(d2i_X509(nullptr, &at, static_cast<long>(block->data.bytes.size())));
      if (!certificate) throw Failure(DKV_ERR_PSE_FORMAT, "certificate");
      pem.certificates.push_back(std::move(certificate));
    } else if (IsKeyBlock(block->name)) {
      pem.keys += 1;
      pem.encrypted = block->encrypted;
      pem.cipher = block->cipher;
    } else if (block->name != PEM_STRING_ECPARAMETERS) {
      // Restricted trust ("TRUSTED CERTIFICATE"), requests, parameters: nothing we would know how to honour.
      throw Failure(DKV_ERR_PSE_FORMAT, "PEM block");
    }
  }
  // With two keys nobody could say which one signs.
  if (pem.keys > 1) throw Failure(DKV_ERR_PSE_FORMAT, "two keys");
  return pem;
}

}  // namespace

bool IsPem(const Secret& content) {
  constexpr std::string_view kMark = "-----BEGIN ";
  return std::search(content.bytes.begin(), content.bytes.end(), kMark.begin(), kMark.end()) !=
         content.bytes.end();
}

Pse ReadPem(const Secret& content, const char* password, PseUse use) {
  PemContent pem = ReadPemBlocks(content);
  Pse pse;
  if (pem.keys == 1 && use != PseUse::kTrust && !pem.cipher.empty() &&
      CipherPtr(EVP_CIPHER_fetch(nullptr, pem.cipher.c_str(), nullptr)) == nullptr) {
    throw Unsupported(pem.cipher);
  }
  if (pem.keys == 1 && use != PseUse::kTrust) pse.key = ReadPemKey(content, password, pem.encrypted);
  pse.further = std::move(pem.certificates);
  return pse;
}

}  // namespace tolven::crypto

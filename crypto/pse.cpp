#include "pse.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "api.h"

namespace tolven::crypto {
namespace {

// A profile is some kilobytes; a trust file with every public authority of the world is below one megabyte.
constexpr std::size_t kPseLimit = std::size_t{4} << 20;

// Bytes of a profile, which may hold a key in the clear.
struct Secret {
  std::vector<std::uint8_t> bytes;
  Secret() = default;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  Secret(Secret&&) = default;
  Secret& operator=(Secret&&) = default;
  ~Secret() {
    if (!bytes.empty()) OPENSSL_cleanse(bytes.data(), bytes.size());
  }
};

class File {
 public:
  // Not blocking: a name that turns out to be a pipe must not hang us before its type is known.
  explicit File(const std::string& path) : m_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~File() {
    if (m_fd >= 0) close(m_fd);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int fd() const { return m_fd; }

 private:
  int m_fd;
};

Secret ReadPseFile(const std::string& path) {
  const File file(path);
  struct stat status {};
  if (file.fd() < 0 || fstat(file.fd(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw Failure(DKV_ERR_NO_PSE, "open");
  }
  if (status.st_size <= 0 || static_cast<std::size_t>(status.st_size) > kPseLimit) {
    throw Failure(DKV_ERR_PSE_FORMAT, "size");
  }
  Secret content;
  content.bytes.resize(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (filled < content.bytes.size()) {
    const ssize_t got = read(file.fd(), content.bytes.data() + filled, content.bytes.size() - filled);
    if (got <= 0) throw Failure(DKV_ERR_NO_PSE, "read");
    filled += static_cast<std::size_t>(got);
  }
  return content;
}

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
  Secret data;
};

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
  block.data.bytes.assign(data, data + length);
  OPENSSL_free(name);
  OPENSSL_free(header);
  OPENSSL_clear_free(data, static_cast<std::size_t>(length));
  return block;
}

bool IsKeyBlock(const std::string& name) {
  return std::string_view(name).ends_with("PRIVATE KEY");
}

KeyPtr ReadPemKey(const Secret& content, const char* password, bool encrypted) {
  const BioPtr bio = MemoryBio(content);
  // The callback only reads its argument.
  KeyPtr key(PEM_read_bio_PrivateKey(bio.get(), nullptr, PasswordCallback, const_cast<char*>(password)));
  if (!key) throw Failure(encrypted ? DKV_ERR_PASSWORD : DKV_ERR_PSE_FORMAT, "private key");
  return key;
}

struct PemContent {
  Certs certificates;
  int keys = 0;
  bool encrypted = false;
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
    } else if (block->name != PEM_STRING_ECPARAMETERS) {
      // Restricted trust ("TRUSTED CERTIFICATE"), requests, parameters: nothing we would know how to honour.
      throw Failure(DKV_ERR_PSE_FORMAT, "PEM block");
    }
  }
  // With two keys nobody could say which one signs.
  if (pem.keys > 1) throw Failure(DKV_ERR_PSE_FORMAT, "two keys");
  return pem;
}

Pse LoadPem(const Secret& content, const char* password, PseUse use) {
  PemContent pem = ReadPemBlocks(content);
  Pse pse;
  if (pem.keys == 1 && use != PseUse::kTrust) {
    pse.key = ReadPemKey(content, password, pem.encrypted);
    const auto own = std::find_if(pem.certificates.begin(), pem.certificates.end(), [&](const CertPtr& cert) {
      return X509_check_private_key(cert.get(), pse.key.get()) == 1;
    });
    ERR_clear_error();  // the certificates that are not the key's
    if (own == pem.certificates.end()) throw Failure(DKV_ERR_PSE_NO_CERT, "key's certificate");
    pse.own = std::move(*own);
    pem.certificates.erase(own);
  }
  pse.further = std::move(pem.certificates);
  return pse;
}

// No password and an empty one are two different things in PKCS#12; people do not know, so both are tried.
const char* FindMacPassword(PKCS12* p12, const char* password) {
  const bool none = password == nullptr || password[0] == '\0';
  if (PKCS12_mac_present(p12) != 1) return none ? nullptr : password;
  if (!none && PKCS12_verify_mac(p12, password, -1) == 1) return password;
  if (none && PKCS12_verify_mac(p12, nullptr, 0) == 1) return nullptr;
  if (none && PKCS12_verify_mac(p12, "", 0) == 1) return "";
  throw Failure(DKV_ERR_PASSWORD, "PKCS#12");
}

Pse LoadPkcs12(const Secret& content, const char* password) {
  const unsigned char* at = content.bytes.data();
  const Pkcs12Ptr p12(d2i_PKCS12(nullptr, &at, static_cast<long>(content.bytes.size())));
  if (!p12) throw Failure(DKV_ERR_PSE_FORMAT, "PKCS#12");

  EVP_PKEY* key = nullptr;
  X509* own = nullptr;
  STACK_OF(X509)* rest = nullptr;
  const int parsed = PKCS12_parse(p12.get(), FindMacPassword(p12.get(), password), &key, &own, &rest);
  Pse pse;
  pse.key.reset(key);
  pse.own.reset(own);
  const CertStack owner(rest);
  if (parsed != 1) throw Failure(DKV_ERR_PSE_FORMAT, "PKCS#12 content");
  for (int i = 0; i < sk_X509_num(rest); ++i) pse.further.push_back(Share(sk_X509_value(rest, i)));
  if (pse.key && !pse.own) throw Failure(DKV_ERR_PSE_NO_CERT, "key's certificate");
  return pse;
}

}  // namespace

Pse LoadPse(const std::string& name, const char* password, PseUse use) {
  const std::string path = PsePath(name);
  if (path.empty()) throw Failure(DKV_ERR_NO_PSE, "name");
  const Secret content = ReadPseFile(path);

  constexpr std::string_view kPemMark = "-----BEGIN ";
  const bool pem = std::search(content.bytes.begin(), content.bytes.end(), kPemMark.begin(),
                               kPemMark.end()) != content.bytes.end();
  Pse pse = pem ? LoadPem(content, password, use) : LoadPkcs12(content, password);
  if (use == PseUse::kSign && !pse.key) throw Failure(DKV_ERR_PSE_NO_KEY, "key");
  if (!pse.own && pse.further.empty()) throw Failure(DKV_ERR_PSE_NO_CERT, "certificates");
  return pse;
}

}  // namespace tolven::crypto

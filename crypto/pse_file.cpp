#include "pse_file.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "api.h"

namespace tolven::crypto {
namespace {

// A profile is some kilobytes; a trust file with every public authority of the world is below one megabyte.
constexpr std::size_t kPseLimit = std::size_t{4} << 20;

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

bool IsRegularFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string FullPath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path full = std::filesystem::absolute(path, error);
  return error ? path : full.string();
}

[[noreturn]] void FailToRead(const std::string& path, int error) {
  const bool absent = error == ENOENT || error == ENOTDIR;
  throw Failure(absent ? DKV_ERR_NO_PSE : DKV_ERR_PSE_READ, "open",
                FullPath(path) + ": " + std::strerror(error) + ".");
}

}  // namespace

Secret::~Secret() {
  if (!bytes.empty()) OPENSSL_cleanse(bytes.data(), bytes.size());
}

std::string SecudirPath(const std::string& fileName) {
  const char* directory = std::getenv("SECUDIR");
  if (directory == nullptr || directory[0] == '\0') return {};
  return std::string(directory) + "/" + fileName;
}

bool HasPse(const std::string& name) {
  return IsRegularFile(SecudirPath(name + ".pse")) || IsRegularFile(SecudirPath(name));
}

std::string PsePath(const std::string& name) {
  if (name.empty()) throw Failure(DKV_ERR_NO_PSE, "name", "Its name is empty.");
  if (name.find('/') != std::string::npos) return name;
  const std::array<std::string, 2> places = {SecudirPath(name + ".pse"), SecudirPath(name)};
  for (const std::string& place : places) {
    if (IsRegularFile(place)) return place;
  }
  if (places[0].empty()) throw Failure(DKV_ERR_NO_PSE, "name", "SECUDIR is not set.");
  throw Failure(DKV_ERR_NO_PSE, "name",
                "Looked for " + FullPath(places[0]) + " and " + FullPath(places[1]) + ".");
}

Secret ReadPseFile(const std::string& path) {
  const File file(path);
  struct stat status {};
  if (file.fd() < 0 || fstat(file.fd(), &status) != 0) FailToRead(path, errno);
  if (!S_ISREG(status.st_mode)) {
    throw Failure(DKV_ERR_NO_PSE, "type", FullPath(path) + " is not a regular file.");
  }
  if (status.st_size <= 0 || static_cast<std::size_t>(status.st_size) > kPseLimit) {
    throw Failure(DKV_ERR_PSE_FORMAT, "size", FullPath(path) + " is empty or too large.");
  }
  Secret content;
  content.bytes.resize(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (filled < content.bytes.size()) {
    const ssize_t got = read(file.fd(), content.bytes.data() + filled, content.bytes.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) FailToRead(path, errno);
    if (got == 0) throw Failure(DKV_ERR_PSE_READ, "read", FullPath(path) + " became shorter.");
    filled += static_cast<std::size_t>(got);
  }
  return content;
}

}  // namespace tolven::crypto

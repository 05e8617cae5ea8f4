#include "manifest_signing/signing_world.h"

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <sstream>

#include "signing/crypto/dkv_loader.h"

namespace tolven::test {
namespace {

struct PkiWorld {
  Scratch scratch;
  PkiWorld() {
    scratch.Run("sh '" TOLVEN_MAKE_PKI "' .");
    setenv("SECUDIR", scratch.File("sec").c_str(), 1);
  }
};

// The server ends when its standard input does.
class TsaProcess {
 public:
  TsaProcess() {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (pipe(in.data()) != 0 || pipe(out.data()) != 0) throw std::runtime_error("no pipe");
    m_pid = fork();
    if (m_pid < 0) throw std::runtime_error("no process");
    if (m_pid == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      for (const int fd : {in[0], in[1], out[0], out[1]}) close(fd);
      execlp("python3", "python3", "-B", TOLVEN_TSA_SERVER, Pki().Path().c_str(), nullptr);
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    m_stdin = in[1];
    ReadPorts(out[0]);
  }
  ~TsaProcess() {
    close(m_stdin);
    waitpid(m_pid, nullptr, 0);
  }
  TsaProcess(const TsaProcess&) = delete;
  TsaProcess& operator=(const TsaProcess&) = delete;

  TsaPorts ports;

 private:
  void ReadPorts(int fd) {
    FILE* file = fdopen(fd, "r");
    char plain[16];
    char tls[16];
    const bool read = file != nullptr && fscanf(file, "%15s %15s", plain, tls) == 2;
    if (file != nullptr) fclose(file);
    if (!read) throw std::runtime_error("the time stamp server did not start");
    ports = {plain, tls};
  }

  pid_t m_pid = -1;
  int m_stdin = -1;
};

}  // namespace

const Scratch& Pki() {
  static const PkiWorld world;
  return world.scratch;
}

const TsaPorts& Tsa() {
  static const TsaProcess process;
  return process.ports;
}

Environment::Environment(const char* name, const char* value) : m_name(name) {
  const char* before = getenv(name);
  m_wasSet = before != nullptr;
  if (m_wasSet) m_before = before;
  if (value != nullptr) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
}

Environment::~Environment() {
  if (m_wasSet) {
    setenv(m_name.c_str(), m_before.c_str(), 1);
  } else {
    unsetenv(m_name.c_str());
  }
}

ManifestContextPtr Initialised(const char* format, const char* fileHash, const char* signatureHash) {
  Pki();
  EXPECT_EQ(ManifestStartup(), SMF_OK);
  ManifestContextPtr context = ManifestMakeContext();
  EXPECT_EQ(ManifestInit(context.get(), TOLVEN_QELCRYPTO, fileHash, format, signatureHash), SMF_OK)
      << ManifestGetLastError(context.get());
  return context;
}

const DkvTable* Library() {
  return DkvSupProcessTable(TOLVEN_QELCRYPTO);
}

std::string BodyOf(std::string_view document) {
  return std::string(document.substr(0, document.find("\n-----BEGIN SIGNATURE-----") + 1));
}

std::string SignatureOf(const Scratch& scratch, std::string_view document) {
  const std::size_t begin = document.find("-----BEGIN SIGNATURE-----\n") + 26;
  const std::size_t end = document.find("\n-----END SIGNATURE-----");
  scratch.Write("base64", std::string(document.substr(begin, end - begin)) + "\n");
  scratch.Run("openssl base64 -d -in base64 -out der");
  return scratch.Read("der");
}

}  // namespace tolven::test

#include "signing/key_password.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "fileio/run_signals.h"
#include "fileio/unique_fd.h"
#include "report/except.h"
#include "report/show_text.h"
#include "signing/crypto/dkv.h"
#include "signing/crypto/secudir.h"

namespace tolven {

namespace {

// A terminal takes no longer line.
using Line = std::array<char, 4096>;

[[noreturn]] void Refuse(const std::string& detail) {
  throw CInvalSignatureExcept(detail, DKV_ERR_PASSWORD);
}

// The terminal without echo. A signal that ends the run puts the echo back first; one that would stop it
// waits: a shell must not get a terminal that shows nothing.
class CQuietTerminal final : private CUndoOnSignal {
 public:
  explicit CQuietTerminal(int fd) : m_fd(fd) {
    if (tcgetattr(fd, &m_before) != 0) return;
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    pthread_sigmask(SIG_BLOCK, &stop, &m_mask);
    Arm();
    termios quiet = m_before;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
    m_quiet = tcsetattr(fd, TCSAFLUSH, &quiet) == 0;
    if (!m_quiet) Restore();
  }
  ~CQuietTerminal() {
    if (m_quiet) Restore();
  }
  CQuietTerminal(const CQuietTerminal&) = delete;
  CQuietTerminal& operator=(const CQuietTerminal&) = delete;

  bool IsQuiet() const { return m_quiet; }

 private:
  void Undo() noexcept override { tcsetattr(m_fd, TCSANOW, &m_before); }
  void Restore() {
    Undo();
    Disarm();
    pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
  }

  const int m_fd;
  termios m_before{};
  sigset_t m_mask{};
  bool m_quiet = false;
};

// The first line of `fd`; without its end. Nothing when it cannot be read or does not fit.
std::optional<std::string_view> ReadLine(int fd, Line& line) {
  std::size_t length = 0;
  while (length < line.size()) {
    const ssize_t done = read(fd, line.data() + length, line.size() - length);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return std::nullopt;
    const std::string_view all(line.data(), length + static_cast<std::size_t>(done));
    const std::size_t end = all.find('\n');
    if (done == 0 || end != std::string_view::npos) {
      std::string_view found = all.substr(0, end);
      if (found.ends_with('\r')) found.remove_suffix(1);
      return found;
    }
    length = all.size();
  }
  return std::nullopt;
}

void Say(int fd, std::string_view text) {
  static_cast<void>(write(fd, text.data(), text.size()) < 0);  // nobody there to be told
}

// Gives the line's password to the command line. False for none, and for one that a C text cannot hold.
bool Keep(IRunServices& run, const std::optional<std::string_view>& password) {
  if (!password || password->empty() || password->find('\0') != std::string_view::npos) return false;
  run.CmdLine().SetPassword(*password);
  return true;
}

// An address of a hardware key may hold a PIN, and is too long to read anyway.
std::string Question(const CmdOptions& options) {
  const std::string_view key = options.key == nullptr ? "QELvalidation" : options.key;
  return key.starts_with("pkcs11:") ? "Password of the token: " : "Password of " + ShowText(key) + ": ";
}

// False without a terminal.
bool AskTerminal(IRunServices& run) {
  if (isatty(STDIN_FILENO) == 0) return false;
  const UniqueFd own(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
  const int fd = own ? own.Get() : STDIN_FILENO;
  Line line{};
  bool kept = false;
  {
    const CQuietTerminal terminal(fd);
    if (!terminal.IsQuiet()) return false;
    Say(fd, Question(run.Options()));
    kept = Keep(run, ReadLine(fd, line));
    explicit_bzero(line.data(), line.size());
    Say(fd, "\n");
  }
  if (!kept) Refuse("No password was given.");
  return true;
}

// False when no file is named.
bool ReadPasswordFile(IRunServices& run) {
  const char* name = std::getenv("TOLVEN_PASSWORD_FILE");
  if (name == nullptr || *name == '\0') return false;
  const std::string shown = ShowText(name);
  const UniqueFd file(open(InStartDirectory(name).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  struct stat status {};
  if (!file || fstat(file.Get(), &status) != 0) {
    Refuse("The password file >" + shown + "< of TOLVEN_PASSWORD_FILE cannot be opened: " + strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) Refuse("The password file >" + shown + "< is not a regular file.");
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    Refuse("Others may read the password file >" + shown + "<. Take that away first: chmod 600 " + shown);
  }
  Line line{};
  const bool kept = Keep(run, ReadLine(file.Get(), line));
  explicit_bzero(line.data(), line.size());
  if (!kept) Refuse("The first line of the password file >" + shown + "< is to be the password.");
  return true;
}

}  // namespace

bool ObtainPassword(IRunServices& run) {
  if (run.Options().password != nullptr) return false;
  return AskTerminal(run) || ReadPasswordFile(run);
}

}  // namespace tolven

#include "library/verification.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <mutex>
#include <numeric>

#include "library/entry_view.h"
#include "report/code_names.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/show_text.h"
#include "signing/manifest_check.h"
#include "signing/manifest_witness.h"

namespace tolven {

namespace {

// The library below knows one start at a time.
std::mutex g_checks;

// What was given in memory as a file of this process.
class CTrustFile {
 public:
  explicit CTrustFile(const tolven_trust& trust) {
    if (trust.memory == nullptr) return;
    m_file = UniqueFd(memfd_create("trust", MFD_CLOEXEC));
    const auto* bytes = static_cast<const unsigned char*>(trust.memory);
    for (std::size_t done = 0; done < trust.memory_size;) {
      const ssize_t count = m_file ? write(m_file.Get(), bytes + done, trust.memory_size - done) : -1;
      if (count <= 0) throw COpenExcept("memory", LastSystemError());
      done += static_cast<std::size_t>(count);
    }
    m_name = "/proc/self/fd/" + std::to_string(m_file.Get());
  }
  const char* Name() const { return m_name.empty() ? nullptr : m_name.c_str(); }

 private:
  UniqueFd m_file;
  std::string m_name;
};

bool EqualHex(std::string_view one, std::string_view other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

[[noreturn]] void RaiseFile(const char* what, std::string_view name, int code) {
  throw CInvalManifestExcept(what + ShowText(name), code, 0);
}

}  // namespace

void CVerification::Check(CArchive& archive, const tolven_trust& trust, CmdOptions& options) {
  std::int64_t offset = 0;
  const std::string text = GetManifestContent(archive, offset);
  if (offset == 0) throw CExcept(NotSignedMessage(archive.Name()), kErrorNotSigned);
  const CTrustFile memory(trust);
  const char* key = memory.Name() != nullptr ? memory.Name() : trust.file;
  options.securityLibrary = trust.library;
  const std::span crl(static_cast<const std::uint8_t*>(trust.crl), trust.crl == nullptr ? 0 : trust.crl_size);
  ManifestContextPtr context = ManifestMakeContext();
  const std::lock_guard lock(g_checks);
  InitForReading(context.get(), options);
  options.securityLibrary = nullptr;
  const unsigned flags = trust.crl == nullptr ? 0 : kManifestRequireCrl;
  const int code = ManifestVerifyEx(context.get(), text.data(), text.size(), key, key, trust.password, crl,
                                    flags, false, true);
  Note(context.get(), code);
  if (code != SMF_ESIGNATURE_EXTERNAL && code != SMF_ESIGNATURE_VALIDATION) {
    ThrowManifestError(context.get(), code);
  }
  NoteFiles(context.get());
  m_manifest = context.get();
  archive.ExchangeWitness(std::make_unique<CManifestWitness>(std::move(context)));
}

void CVerification::Note(ManifestContext* context, int code) {
  m_manifestCode = code;
  m_cryptoCode = ManifestLastDkvErrorCode(context);
  m_reason = ManifestGetLastError(context);
  m_key = ManifestSignatureName(context);
  m_signingTime = ManifestSigningTime(context);
  m_timeStamp = ManifestTsaName(context);
  m_digest = ManifestFileHashAlgorithm(context);
  // Asking for a name that is missing adds to the errors: last.
  if (ManifestSignatureSubject(context, &m_subject) != SMF_OK) m_subject.clear();
  if (ManifestSignatureIssuer(context, &m_issuer) != SMF_OK) m_issuer.clear();
}

void CVerification::NoteFiles(ManifestContext* context) {
  if (ManifestGetFileCounter(context) == 0 || ManifestGetFileList(context, &m_files) != SMF_OK) return;
  std::size_t room = 0;
  for (std::size_t i = 0; i < m_files.size(); ++i) room += m_files[i].name.size() + 1;
  m_names.reserve(room);
  m_covered.reserve(m_files.size());
  for (std::size_t i = 0; i < m_files.size(); ++i) {
    const std::string_view name = m_files[i].name;
    m_covered.push_back({m_names.data() + m_names.size(), name.size()});
    m_names += name;
    m_names += '\0';
  }
  m_byName.resize(m_files.size());
  std::iota(m_byName.begin(), m_byName.end(), 0U);
  std::stable_sort(m_byName.begin(), m_byName.end(), [this](std::uint32_t left, std::uint32_t right) {
    return m_files[left].name < m_files[right].name;
  });
}

void CVerification::Show(tolven_verdict& verdict) const {
  const std::size_t size = verdict.struct_size;
  verdict = {.struct_size = size,
             .code = verdict.code,
             .manifest_code = m_manifestCode,
             .crypto_code = m_cryptoCode,
             .reason = m_reason.c_str(),
             .key = m_key.c_str(),
             .subject = m_subject.c_str(),
             .issuer = m_issuer.c_str(),
             .signing_time = m_signingTime.c_str(),
             .time_stamp = m_timeStamp.c_str(),
             .digest = m_digest.c_str(),
             .covered = m_covered.data(),
             .covered_count = m_covered.size()};
}

void CVerification::CheckFile(CEntryIndex& index, std::size_t number) const {
  const std::string_view name = PathOf(index.Name(number));
  const auto first = std::lower_bound(
      m_byName.begin(), m_byName.end(), name,
      [this](std::uint32_t place, std::string_view wanted) { return m_files[place].name < wanted; });
  const std::size_t before = index.FilesBefore(number);
  if (static_cast<std::size_t>(m_byName.end() - first) <= before ||
      m_files[first[static_cast<std::ptrdiff_t>(before)]].name != name) {
    RaiseFile("not in the signed manifest: ", name, SMF_EFILENOTFOUND);
  }
  HaContext digest;
  int result = haInit(&digest, haGetAlgorithm(m_digest.data(), m_digest.size()));
  index.ReadAll(number, [&](std::span<const std::uint8_t> piece) {
    if (result == HA_OK) result = haUpdate(&digest, piece.data(), piece.size());
  });
  if (result == HA_OK) result = haFinal(&digest);
  std::array<char, 2 * kHaMaxDigestLength + 1> hex{};
  std::size_t length = 0;
  if (result == HA_OK) result = haHexEncodeDigest(&digest, hex.data(), hex.size(), &length);
  const std::string_view recorded = m_files[first[static_cast<std::ptrdiff_t>(before)]].hexDigest;
  if (result != HA_OK || !EqualHex({hex.data(), length}, recorded)) {
    RaiseFile("not what was signed: ", name, SMF_EDIGEST);
  }
}

}  // namespace tolven

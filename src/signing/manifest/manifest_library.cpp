// The process and the cryptographic library behind manifest.h: start-up and clean-up, loading, algorithms.

#include <cstring>
#include <exception>

#include "signing/crypto/dkv_loader.h"
#include "signing/crypto/secudir.h"
#include "signing/crypto/trace.h"
#include "signing/manifest/dkv_calls.h"
#include "signing/manifest/manifest_context.h"

namespace tolven {
namespace {

constexpr char kDefaultLibrary[] = "libqelcrypto.so";
constexpr char kMutexName[] = "QELMANIFEST_DKV";
constexpr int kRequiredPatchLevel = 35;  // the first one with software signatures

int CheckVersion(ManifestContext& context) {
  ManifestTrace("SMF: Initializing VantaCryptoLib Version: %s \n",
                DkvSupGetVantaCryptoLibVersionString(context.library).c_str());
  if (!DkvSupToolkitIsQELCrypto(context.library)) {
    return Fail(context, SMF_ELIBRARY, "Manifest verification library must be QELCRYPTOLIB");
  }
  int version = 0;
  int patchLevel = 0;
  if (DkvSupToolkitVersion(context.library, &version, &patchLevel) && patchLevel >= kRequiredPatchLevel)
    return SMF_OK;
  return Fail(
      context, SMF_ELIBRARY,
      FormatText("QELCRYPTOLIB patch level for software signatures must be %d but it is %d. Please update.",
                 kRequiredPatchLevel, patchLevel));
}

int LoadLibrary(ManifestContext& context, const char* libraryName) {
  const char* name = IsGiven(libraryName) ? libraryName : kDefaultLibrary;
  ManifestTrace("SMF: Load Dkv Crypto Library  >%s< \n", name);
  DkvTable* table = DkvSupProcessTable(name);
  const DkvMessageCallback message = [](const char* text) { ManifestTrace("%s", text); };
  const int result = DkvSupInitEx(name, table, nullptr, message, kDkvLevelAll);
  if (result == kDkvFunctionsMissing) {
    ManifestTrace("SMF: Crypto Library >%s< could not load all functions.\n", name);
  } else if (result != kDkvReady && result != kDkvAlreadyLoaded) {
    ManifestTrace("SMF: Couldn't load Crypto Library %s.\n", name);
    return Fail(context, SMF_ELIBRARY, "QEL Crypto Library could not be loaded");
  }
  VantaCryptoLibSetTraceFile(ManifestTraceFile());
  VantaCryptoLibSetTraceLevel(ManifestTraceLevel());
  context.library = table;
  const int checked = CheckVersion(context);
  if (checked != SMF_OK) context.library = nullptr;
  return checked;
}

int SetAlgorithms(ManifestContext& context, const char* fileHash, const char* format,
                  const char* signatureHash) {
  if (IsGiven(fileHash)) context.hashAlgorithm = haGetAlgorithm(fileHash, std::strlen(fileHash));
  context.digestLength = haGetDigestLength(context.hashAlgorithm);
  if (context.hashAlgorithm == 0)
    return Fail(context, SMF_EDIGESTLIB, "Invalid file hash algorithm supplied");

  const std::string_view wantedFormat = IsGiven(format) ? std::string_view(format) : kFormatPkcs7Tstamp;
  if (wantedFormat != kFormatPkcs7Tstamp && wantedFormat != kFormatPkcs7) {
    return Fail(context, SMF_EINVARG, "Invalid DKV format supplied (must be PKCS7-TSTAMP)");
  }
  context.signatureFormat = wantedFormat;

  int id = kHaDefaultAlgorithm;
  if (IsGiven(signatureHash)) id = haGetAlgorithm(signatureHash, std::strlen(signatureHash));
  if (id == 0) return Fail(context, SMF_EDIGESTLIB, "Invalid signature hash algorithm supplied");
  context.signatureAlgorithm = haGetAlgorithmName(id);
  return SMF_OK;
}

}  // namespace

int ManifestStartup() {
  OpenManifestTrace();
  try {
    MakeDkvMutex();
  } catch (const std::exception&) {
    ManifestTrace("SMF: Mutex %s\n", kMutexName);
    return Fail(s_Manifest, SMF_EINIT, "Thread Mutex could not be initialized.\n");
  }
  return SMF_OK;
}

void ManifestSetStartDirectory(const std::string& directory) {
  SetStartDirectory(directory);
}

void ManifestCleanup() {
  ManifestClose(nullptr);
  {
    const DkvLock lock;
    DkvSupEndAll();
    VantaCryptoLibSetTraceFile(nullptr);
  }
  DropDkvMutex();
  CloseManifestTrace();
}

int ManifestInit(ManifestContext* context, const char* libraryName, const char* fileHashAlgorithm,
                 const char* signatureFormat, const char* signatureHashAlgorithm) {
  ManifestContext& c = ContextOf(context);
  ManifestClose(&c);
  return Guarded(c, [&]() -> int {
    const DkvLock lock;
    if (!lock.Locked()) {
      ManifestTrace("SMF: DKV Mutex lock could not be applied!\n");
      return Fail(c, SMF_EINIT, "Mutex lock could not be applied!");
    }
    if (const int result = LoadLibrary(c, libraryName); result != SMF_OK) return result;
    return SetAlgorithms(c, fileHashAlgorithm, signatureFormat, signatureHashAlgorithm);
  });
}

}  // namespace tolven

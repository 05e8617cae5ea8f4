#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "archive/archive.h"
#include "fileio/unique_fd.h"
#include "library/entry_index.h"
#include "main/crypto_use.h"
#include "signing/hash/hash.h"
#include "signing/manifest/manifest.h"
#include "tolven/archive.h"

namespace tolven {

// One archive's signature: checked, and then what it says of signer and files. The manifest itself goes to
// the archive, as the witness of its entries.
class CVerification {
 public:
  // Finds and checks; what it found out until it failed is kept, too. `options` gets the library.
  void Check(CArchive& archive, const tolven_trust& trust, CmdOptions& options);
  void Show(tolven_verdict& verdict) const;
  // All files of the archive are met anew, from the first.
  void RewindFiles() { ManifestRewindFiles(m_manifest); }
  // The data of a file of the index is what its record says: the n-th file of a name answers to the n-th
  // record of that name. CInvalManifestExcept. Any number of threads.
  void CheckFile(CEntryIndex& index, std::size_t number) const;

 private:
  void Note(ManifestContext* context, int code);
  void NoteFiles(ManifestContext* context);

  CCryptoUse m_use;  // outlives the manifest, which is with the archive: see CReader
  ManifestContext* m_manifest = nullptr;
  int m_manifestCode = 0;
  int m_cryptoCode = 0;
  std::string m_reason;
  std::string m_key;
  std::string m_subject;
  std::string m_issuer;
  std::string m_signingTime;
  std::string m_timeStamp;
  std::string m_digest;
  ManifestFiles m_files;
  std::string m_names;  // a zero byte behind each
  std::vector<tolven_text> m_covered;
  std::vector<std::uint32_t> m_byName;  // places in m_files
};

}  // namespace tolven

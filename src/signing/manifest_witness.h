#pragma once

#include <memory>
#include <string>
#include <utility>

#include "archive/signature.h"
#include "signing/manifest/manifest.h"

namespace tolven {

// The witness of a signed archive, or of one that is to be signed: its manifest lists the files' digests. Fed
// while entries are written or hashed, compared with while entries of a signed archive are read.
class CManifestWitness : public IEntryWitness {
 public:
  explicit CManifestWitness(ManifestContextPtr manifest) : m_manifest(std::move(manifest)) {}

  // The manifest of an archive; null for an archive without a witness. An archive in the hands of the signing
  // flows never has any other witness: one would be std::bad_cast, not an unsigned archive.
  static ManifestContext* ManifestOf(const CArchive& archive);

  bool Open(const std::string& storedName) override;
  void Update(std::span<const std::uint8_t> data) override;
  bool Close() override;
  void Pass(const std::string& storedName) override;
  [[noreturn]] void Raise(const std::string& detail, bool withReason) const override;
  void Verdict(const CArchive& archive, const CSelection* selection, unsigned long& failed) override;

 private:
  bool Note(int code);
  unsigned long CountMissing(const CArchive& archive, const CSelection& selection, std::string& text);

  ManifestContextPtr m_manifest;
  int m_lastCode = SMF_OK;
  int m_firstFailure = SMF_OK;  // what the verdict names
};

}  // namespace tolven

#include "signing/manifest_witness.h"

#include <cerrno>
#include <string_view>
#include <unordered_map>

#include "archive/archive.h"
#include "archive/selection.h"
#include "report/except.h"
#include "report/show_text.h"

namespace tolven {

ManifestContext* CManifestWitness::ManifestOf(const CArchive& archive) {
  if (archive.Witness() == nullptr) return nullptr;
  return dynamic_cast<CManifestWitness&>(*archive.Witness()).m_manifest.get();
}

bool CManifestWitness::Note(int code) {
  m_lastCode = code;
  if (m_firstFailure == SMF_OK) m_firstFailure = code;
  return code == SMF_OK;
}

bool CManifestWitness::Open(const std::string& storedName) {
  return Note(ManifestOpenFile(m_manifest.get(), storedName.data(), storedName.size()));
}

void CManifestWitness::Update(std::span<const std::uint8_t> data) {
  if (ManifestUpdateFile(m_manifest.get(), data.data(), data.size()) != SMF_OK) {
    throw CInvalManifestExcept(ManifestGetLastError(m_manifest.get()), SMF_EDIGESTLIB, 0);
  }
}

bool CManifestWitness::Close() {
  return Note(ManifestCloseFile(m_manifest.get()));
}

// A file without a record counts only when it is selected.
void CManifestWitness::Pass(const std::string& storedName) {
  static_cast<void>(ManifestPassFile(m_manifest.get(), storedName.data(), storedName.size()));
}

void CManifestWitness::Raise(const std::string& detail, bool withReason) const {
  const ManifestContext* manifest = m_manifest.get();
  throw CInvalManifestExcept(withReason ? detail + " Error \n" + ManifestGetLastError(manifest) : detail,
                             m_lastCode, ManifestLastDkvErrorCode(manifest));
}

// Counts the listed files that were asked for and have no entry, as failed ones; `text` names the first. The
// library's own check is for all files: one that nobody asked for must not show in its errors.
unsigned long CManifestWitness::CountMissing(const CArchive& archive, const CSelection& selection,
                                             std::string& text) {
  ManifestFiles files;
  ManifestContext* context = m_manifest.get();
  if (ManifestGetFileCounter(context) == 0 || ManifestGetFileList(context, &files) != SMF_OK) return 0;
  unsigned long missing = 0;
  std::unordered_map<std::string_view, std::size_t> listed;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string name(files[i].name);
    if (!selection.AsksFor(name, archive.ShownName(name, false))) continue;
    if (++listed[files[i].name] <= selection.Met(name)) continue;
    if (++missing == 1) text = "File >" + ShowText(name) + "< of the manifest was not found";
  }
  if (missing > 0) Note(SMF_EFILENOTFOUND);
  return missing;
}

void CManifestWitness::Verdict(const CArchive& archive, const CSelection* selection, unsigned long& failed) {
  std::string missing;
  const bool all = selection != nullptr && selection->SelectsAll();
  if (selection != nullptr && !all) failed += CountMissing(archive, *selection, missing);
  errno = 0;
  ManifestContext* context = m_manifest.get();
  if (all && failed == 0) {
    const int code = ManifestCheckAllMet(context);
    if (code != SMF_OK) throw CInvalManifestExcept(ManifestGetLastError(context), code, 0);
  }
  if (failed == 0) return;
  std::string detail = ManifestGetLastError(context);
  if (!detail.empty() && !missing.empty()) detail += '\n';
  detail += missing;
  if (failed > 1) detail = std::to_string(failed) + " files of the archive are invalid:\n" + detail;
  throw CInvalManifestExcept(detail, m_firstFailure, ManifestLastDkvErrorCode(context));
}

}  // namespace tolven

// Entries on their way out of an archive.

#include <cerrno>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "archive/entry_data.h"
#include "archive/extract_target.h"
#include "cmdline/cmd_line.h"
#include "report/except.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {

namespace {

constexpr int kErrorChecksum = 12;

// The path part and the target part of a link's name. False without a bar.
bool SplitLink(const std::string& name, std::string& path, std::string& target) {
  const std::size_t bar = name.find('|');
  if (bar == std::string::npos) return false;
  path = name.substr(0, bar);
  target = name.substr(bar + 1);
  return true;
}

}  // namespace

void CDirEntry::PrintVerbose(const CArchive* archive) const {
  if (!archive->Options().verbose) return;
  PrintLine((archive->Target() != nullptr ? "x " : "t ") + ShowText(m_path));
}

bool CDirEntry::AddToDir(CArchive* archive) {
  CExtractTarget* target = archive->Target();
  m_path = target != nullptr ? target->PathFor(m_shownName) : m_shownName;
  PrintVerbose(archive);
  try {
    if (target != nullptr) CreateEntry(archive);
    AddToDirEx(archive, target != nullptr);
    const bool good = !DoManifestAPI() || m_signed;
    if (m_pending && good) target->CommitFile(*m_pending, m_header.mode, m_header.mtime, m_shownName);
    m_pending.reset();
    return good;
  } catch (...) {
    m_pending.reset();  // now: what is left of the run sets the dates of directories
    throw;
  }
}

void CDirEntry::CreateEntry(CArchive* archive) {
  m_pending = archive->Target()->OpenFile(m_path, m_shownName);
  m_tempName = m_pending->TempName();
  m_pStream = &m_pending->Stream();
}

void CDirectory::CreateEntry(CArchive* archive) {
  archive->Target()->AddDirectory(m_path, m_shownName, m_header.mode, m_header.mtime);
}

void CDirEntry::AddToDirEx(CArchive* archive, bool write) {
  if (IsDirectory() || IsLink()) return;
  IEntryWitness* witness = DoManifestAPI() ? archive->Witness() : nullptr;
  m_signed = false;
  if (witness != nullptr && !witness->Open(m_storedName)) return;
  if (!m_header.IsEmpty()) {
    DecompressMe(archive, write);
  } else if (witness == nullptr && archive->BlockFollows()) {
    // A damaged size would lose the content without a word. A digest tells by itself.
    throw CDecompExcept(m_shownName);
  }
  m_signed = witness != nullptr && witness->Close();
}

void CDirEntry::DecompressMe(CArchive* archive, bool write) {
  IEntryWitness* witness = DoManifestAPI() ? archive->Witness() : nullptr;
  CEntryDataReader reader(*archive, archive->Buffers(), m_shownName);
  std::span<const std::uint8_t> piece;
  while (reader.Next(piece)) {
    if (witness != nullptr) witness->Update(piece);
    unsigned long done = 0;
    if (write && !m_pStream->Write(piece.data(), piece.size(), &done)) {
      const int error = errno;
      DiscardTarget();
      errno = error;
      throw CWriteExcept(m_shownName);
    }
  }
  // A stored CRC of 0 means that there is none.
  if (reader.StoredCrc() == 0 || reader.StoredCrc() == reader.Crc()) return;
  errno = 0;
  if (m_pending && !m_pending->Discard()) {
    throw CExcept("TOLVEN: could not delete " + ShowText(m_shownName), kErrorChecksum, true);
  }
  throw CChecksumExcept(m_shownName);
}

void CDirEntry::DiscardTarget() {
  if (m_pending && !m_pending->Discard()) throw CExcept("TOLVEN: could not delete " + ShowText(m_shownName));
}

bool CLink::AddToDir(CArchive* archive) {
  CExtractTarget* target = archive->Target();
  std::string linkTarget;
  const bool whole = SplitLink(m_shownName, m_path, linkTarget);
  if (!whole) m_path = m_shownName;
  const std::string name = m_path;
  if (target != nullptr) m_path = target->PathFor(m_path);
  PrintVerbose(archive);
  if (!whole || m_path.empty() || linkTarget.empty()) {
    ReportLinkFailure(name);
    return false;
  }
  if (target != nullptr) target->AddLink(m_path, linkTarget, name);
  return true;
}

}  // namespace tolven

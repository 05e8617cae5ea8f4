#include "library/reader.h"

#include <algorithm>

#include "archive/dir_entry.h"
#include "archive/selection.h"
#include "library/entry_view.h"
#include "report/except.h"
#include "report/show_text.h"

namespace tolven {

namespace {

constexpr const char* kCallbackName = "archive";  // in messages

}  // namespace

CReader::~CReader() {
  const RunStatusScope scope(m_status);  // a stream that closes may have something to say
  Close();
}

void CReader::Close() {
  m_index.reset();
  m_target.reset();
  m_reader.reset();
  m_entry = nullptr;
  m_archive.reset();
  m_verification.reset();
  m_source.reset();
  m_walk = Walk::kBefore;
}

void CReader::Open(const std::string& name, UniqueFd file) {
  Close();
  ForgetCancel();
  if (!file) throw COpenExcept(name, LastSystemError());
  Open(name, CSource::ForReading(*this, std::move(file)));
}

void CReader::Open(const tolven_callbacks& callbacks) {
  Close();
  ForgetCancel();
  Open(kCallbackName, std::make_shared<CSource>(*this, callbacks));
}

void CReader::Open(const std::string& name, std::shared_ptr<CSource> source) {
  m_source = std::move(source);
  m_status.links.clear();
  m_archive.emplace(name, m_source, false, ArchiveServices{m_factory, m_cmdOptions, m_buffers});
  try {
    if (!m_archive->IsValid()) throw CUnsupportedArchiveException(ShowText(name));
  } catch (...) {
    m_archive.reset();
    throw;
  }
}

CArchive& CReader::Archive() {
  if (!m_archive) throw LibraryError{TOLVEN_E_STATE, "no archive is open"};
  return *m_archive;
}

void CReader::Rewind() {
  CArchive& archive = Archive();
  m_reader.reset();
  m_entry = nullptr;
  m_walk = Walk::kFailed;
  archive.Reset();
  static_cast<void>(archive.IsValid());
  if (archive.Witness() != nullptr) m_verification->RewindFiles();
  m_walk = Walk::kBefore;
}

bool CReader::Next(tolven_entry* shown) {
  CDirEntry* entry = Step();
  if (entry == nullptr) return false;
  if (shown == nullptr) return true;
  m_names = NamesOf(*entry);
  tolven_entry filled{};
  filled.type = TypeOfEntry(*entry);
  SetNames(filled, m_names);
  filled.mode = entry->Header().mode & kSettableMode;
  filled.size = SizeOfEntry(*entry);
  filled.mtime = entry->Header().mtime;
  filled.number = m_number;
  GiveEntry(filled, *shown);
  return true;
}

CDirEntry* CReader::Step() {
  CArchive& archive = Archive();
  if (m_walk == Walk::kEnded) return nullptr;
  if (m_walk == Walk::kFailed) throw LibraryError{TOLVEN_E_STATE, "the walk failed before"};
  const bool first = m_walk == Walk::kBefore;
  m_walk = Walk::kFailed;
  if (!first) LeaveEntry();
  m_reader.reset();
  m_entry = nullptr;
  m_entry = first ? FirstEntry(archive) : archive.Next();
  m_number = first ? 0 : m_number + 1;
  m_data = Data::kUntouched;
  m_piece = {};
  m_walk = m_entry == nullptr ? Walk::kEnded : Walk::kWithin;
  return m_entry;
}

CDirEntry& CReader::Entry() {
  Archive();
  if (m_walk != Walk::kWithin) throw LibraryError{TOLVEN_E_STATE, "there is no current entry"};
  return *m_entry;
}

bool CReader::HasWitness(const CDirEntry& entry) const {
  return m_archive->Witness() != nullptr && entry.DoManifestAPI();
}

void CReader::LeaveEntry() {
  if (!HasWitness(*m_entry)) return;
  IEntryWitness& witness = *m_archive->Witness();
  if (m_data == Data::kUntouched) witness.Pass(m_entry->GetStoredName());
  if (m_data != Data::kBegun) return;
  if (m_reader) {
    while (m_reader->Next(m_piece)) witness.Update(m_piece);
  }
  static_cast<void>(witness.Close());  // nobody was told that it was right
}

bool CReader::BeginData(CDirEntry& entry) {
  if (entry.IsDirectory() || entry.IsLink()) return false;
  if (HasWitness(entry) && !m_archive->Witness()->Open(entry.GetStoredName())) {
    m_data = Data::kEnded;
    m_archive->Witness()->Raise("TOLVEN: not in the signed manifest: " + ShowText(entry.GetName()), false);
  }
  m_data = Data::kBegun;
  if (!entry.Header().IsEmpty()) {
    m_reader.emplace(*m_archive, m_buffers, entry.GetName());
  } else if (m_archive->BlockFollows()) {
    throw CDecompExcept(entry.GetName());
  }
  return true;
}

void CReader::EndData(CDirEntry& entry) {
  m_data = Data::kEnded;
  const bool good = !m_reader || m_reader->StoredCrc() == 0 || m_reader->StoredCrc() == m_reader->Crc();
  m_reader.reset();
  const bool recorded = !HasWitness(entry) || m_archive->Witness()->Close();
  if (!good) throw CChecksumExcept(entry.GetName());
  if (!recorded) {
    m_archive->Witness()->Raise("TOLVEN: not what was signed: " + ShowText(entry.GetName()), true);
  }
}

std::size_t CReader::Read(std::span<std::uint8_t> to) {
  CDirEntry& entry = Entry();
  if (m_data == Data::kEnded || to.empty()) return 0;
  if (m_data == Data::kUntouched && !BeginData(entry)) return 0;
  try {
    while (m_piece.empty()) {
      if (!m_reader || !m_reader->Next(m_piece)) {
        EndData(entry);
        return 0;
      }
      if (HasWitness(entry)) m_archive->Witness()->Update(m_piece);
    }
  } catch (...) {
    m_walk = Walk::kFailed;  // the end of an entry whose data is wrong is anywhere
    throw;
  }
  const std::size_t count = std::min(to.size(), m_piece.size());
  std::copy_n(m_piece.begin(), count, to.begin());
  m_piece = m_piece.subspan(count);
  return count;
}

void CReader::ExtractTo(int directory, std::uint32_t flags) {
  if ((flags & ~TOLVEN_KEEP_DIRECTORIES) != 0) throw LibraryError{TOLVEN_E_ARGUMENT, "unknown flags"};
  Archive();
  m_cmdOptions.changeDirPermissions = (flags & TOLVEN_KEEP_DIRECTORIES) == 0;
  m_target.reset();
  m_target.emplace(m_cmdOptions, m_archive->Witness() != nullptr, directory);
}

bool CReader::ExtractEntry(CDirEntry& entry) {
  if (m_data != Data::kUntouched) throw LibraryError{TOLVEN_E_STATE, "the entry was read already"};
  if (entry.IsSignedManifest()) return true;
  m_data = Data::kEnded;
  m_archive->SetTarget(&*m_target);
  const bool good = entry.AddToDir(&*m_archive);
  return good || !HasWitness(entry);
}

void CReader::Extract() {
  CDirEntry& entry = Entry();
  if (!m_target) throw LibraryError{TOLVEN_E_STATE, "there is no directory to extract to"};
  bool good = false;
  try {
    good = ExtractEntry(entry);
  } catch (const CExcept&) {
    m_walk = Walk::kFailed;
    throw;
  }
  if (!good) m_archive->Witness()->Raise("TOLVEN: not what was signed: " + ShowText(entry.GetName()), true);
  RaiseExitCode();
}

void CReader::FinishExtraction() {
  if (!m_target) throw LibraryError{TOLVEN_E_STATE, "there is no directory to extract to"};
  m_target->Finish();
  RaiseExitCode();
}

// What the program does: see CExtract.
void CReader::ExtractAll(int directory, std::uint32_t flags) {
  Rewind();
  ExtractTo(directory, flags);
  bool walked = false;
  try {
    unsigned long failed = ExtractEntries();
    const CSelection everything({});
    if (m_archive->Witness() != nullptr) m_archive->Witness()->Verdict(*m_archive, &everything, failed);
    walked = true;
    m_target->Finish();
  } catch (...) {
    m_walk = Walk::kFailed;
    if (walked) throw;
    try {
      if (m_archive->Witness() != nullptr) m_target->DropLinks();
      m_target->Finish();
    } catch (const CExcept&) {  // the first failure is the one to report
    }
    throw;
  }
  RaiseExitCode();
}

unsigned long CReader::ExtractEntries() {
  unsigned long failed = 0;
  while (CDirEntry* entry = Step()) {
    if (!ExtractEntry(*entry)) ++failed;
  }
  return failed;
}

void CReader::Verify(const tolven_trust& trust, std::uint32_t flags, tolven_verdict* verdict) {
  if ((flags & ~TOLVEN_VERIFY_DATA) != 0) throw LibraryError{TOLVEN_E_ARGUMENT, "unknown flags"};
  Archive().ExchangeWitness(nullptr);
  Rewind();
  m_verification.emplace();
  m_target.reset();  // whether it is verified is fixed when it is made
  m_walk = Walk::kFailed;
  try {
    m_verification->Check(*m_archive, trust, m_cmdOptions);
    if ((flags & TOLVEN_VERIFY_DATA) != 0) CompareEntries();
    Rewind();
  } catch (...) {
    m_archive->ExchangeWitness(nullptr);
    if (verdict != nullptr) m_verification->Show(*verdict);
    throw;
  }
  if (verdict != nullptr) m_verification->Show(*verdict);
}

void CReader::CompareEntries() {
  Rewind();
  unsigned long failed = 0;
  while (CDirEntry* entry = Step()) {
    m_data = Data::kEnded;
    if (entry->IsSignedManifest()) continue;
    entry->AddToDirEx(&*m_archive, false);
    if (HasWitness(*entry) && !entry->IsEntrySigned()) ++failed;
  }
  const CSelection everything({});
  m_archive->Witness()->Verdict(*m_archive, &everything, failed);
}

void CReader::MakeIndex() {
  Rewind();
  m_walk = Walk::kFailed;
  m_index.reset();
  m_index = std::make_unique<CEntryIndex>(*m_archive, m_source);
  Rewind();
}

CEntryIndex& CReader::Index(std::uint64_t number) {
  if (!m_index) throw LibraryError{TOLVEN_E_STATE, "there is no index"};
  if (number >= m_index->Count()) throw LibraryError{TOLVEN_E_NOT_FOUND, "no entry of that number"};
  return *m_index;
}

void CReader::ShowIndexed(std::uint64_t number, tolven_entry& entry) {
  const CEntryIndex& index = Index(number);
  const CEntryIndex::Row& row = index.At(number);
  tolven_entry filled{};
  filled.type = row.type;
  SetNames(filled, index.Name(number));
  filled.mode = row.mode;
  filled.size = row.size;
  filled.mtime = row.mtime;
  filled.number = number;
  GiveEntry(filled, entry);
}

void CReader::FindIndexed(std::string_view name, tolven_entry& entry) {
  if (!m_index) throw LibraryError{TOLVEN_E_STATE, "there is no index"};
  const std::optional<std::size_t> number = m_index->Find(name);
  if (!number) throw LibraryError{TOLVEN_E_NOT_FOUND, "no entry of that name"};
  ShowIndexed(*number, entry);
}

std::size_t CReader::ReadIndexed(std::uint64_t number, std::span<std::uint8_t> to, std::uint64_t offset) {
  return Index(number).Read(number, to, offset);
}

void CReader::CheckIndexed(std::uint64_t number) {
  CEntryIndex& index = Index(number);
  if (m_archive->Witness() != nullptr && index.At(number).type == TOLVEN_FILE) {
    m_verification->CheckFile(index, number);
  } else {
    index.ReadAll(number, [](std::span<const std::uint8_t>) {});
  }
}

}  // namespace tolven

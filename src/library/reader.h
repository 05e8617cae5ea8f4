#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "archive/archive.h"
#include "archive/entry_data.h"
#include "archive/extract_target.h"
#include "library/entry_index.h"
#include "library/handle.h"
#include "library/source.h"
#include "library/verification.h"
#include "main/factories.h"

namespace tolven {

// The archive behind a handle: the program's own reader, with the walk given into the caller's hands. Members
// throw; see CHandle::Call.
class CReader : public CHandle {
 public:
  explicit CReader(const tolven_options& options) : CHandle(options) {}
  ~CReader();

  void Open(const std::string& name, UniqueFd file);
  void Open(const tolven_callbacks& callbacks);

  // False at the end.
  bool Next(tolven_entry* entry);
  void Rewind();
  std::size_t Read(std::span<std::uint8_t> to);

  void ExtractTo(int directory, std::uint32_t flags);
  void Extract();
  void FinishExtraction();
  void ExtractAll(int directory, std::uint32_t flags);

  // `verdict` may be null; it is filled in whatever comes of it.
  void Verify(const tolven_trust& trust, std::uint32_t flags, tolven_verdict* verdict);

  void MakeIndex();
  std::size_t IndexCount() const { return m_index ? m_index->Count() : 0; }
  void ShowIndexed(std::uint64_t number, tolven_entry& entry);
  void FindIndexed(std::string_view name, tolven_entry& entry);
  // Beside other calls.
  std::size_t ReadIndexed(std::uint64_t number, std::span<std::uint8_t> to, std::uint64_t offset);
  void CheckIndexed(std::uint64_t number);

 private:
  void Open(const std::string& name, std::shared_ptr<CSource> source);
  void Close();
  CArchive& Archive();
  CEntryIndex& Index(std::uint64_t number);
  // Of the walk: the entry, or what is wrong with it.
  CDirEntry& Entry();
  CDirEntry* Step();
  // The witness sees every file go by: what was not read of the current one passes it here.
  void LeaveEntry();
  bool HasWitness(const CDirEntry& entry) const;
  bool BeginData(CDirEntry& entry);
  void EndData(CDirEntry& entry);
  // False for a file that differs from its record.
  bool ExtractEntry(CDirEntry& entry);
  unsigned long ExtractEntries();
  void CompareEntries();

  const CEntryFactory m_factory;
  CCompressMan m_buffers;
  std::shared_ptr<CSource> m_source;
  std::optional<CVerification> m_verification;
  std::optional<CArchive> m_archive;  // before the verification: its witness needs it
  std::optional<CExtractTarget> m_target;
  std::unique_ptr<CEntryIndex> m_index;

  enum class Walk { kBefore, kWithin, kEnded, kFailed };
  Walk m_walk = Walk::kBefore;
  CDirEntry* m_entry = nullptr;
  std::uint64_t m_number = 0;
  std::string m_names;
  enum class Data { kUntouched, kBegun, kEnded };
  Data m_data = Data::kUntouched;
  std::optional<CEntryDataReader> m_reader;
  std::span<const std::uint8_t> m_piece;
};

}  // namespace tolven

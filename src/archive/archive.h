#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/archive_output.h"
#include "archive/blocks_ahead.h"
#include "archive/entry_blocks.h"
#include "archive/format.h"
#include "archive/signature.h"
#include "fileio/file_stream.h"

namespace tolven {

class CCompressMan;
class CDirEntry;
class CExtractTarget;
class COutputFile;
struct CmdOptions;

enum class EntryClass : std::size_t { kFile, kDirectory, kLink, kSignedManifest, kCount };

// Makes the entry objects of an archive that is read. The archive knows only this; the concrete classes, the
// signed manifest among them, plug in from above.
class IEntryFactory {
 public:
  virtual ~IEntryFactory() = default;
  // True iff header and stored name mark the signed manifest.
  virtual bool IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                              std::span<const std::uint8_t> accessInfo) const = 0;
  // An entry of that class, to be filled with CDirEntry::SetReadState.
  virtual std::unique_ptr<CDirEntry> NewEntry(EntryClass entryClass) const = 0;
};

// What a caller gives each archive that it opens, and must outlive it. There is no other way in: an archive
// reads nothing that is process-wide, so that several may be open at a time.
struct ArchiveServices {
  const IEntryFactory& factory;
  const CmdOptions& options;
  CCompressMan& buffers;  // of one thread: archives that are read in turn share them
};

// An open archive file: its header, and the walk over its entries. There is no index and no trailer; the walk
// starts at the front and ends where the file ends. Failures are CReadExcept, CWriteExcept and COpenExcept
// with the archive's name, or the exceptions named below; none is repaired here.
class CArchive : public IEntryBlocks {
 public:
  // Opens the file (`mode`: the flags of file_stream.h); COpenExcept. With kOpenCreate alone the header is
  // taken as checked and valid.
  CArchive(const std::string& fileName, unsigned int mode, const ArchiveServices& services);
  // The same for a file that this run has open for writing. With `isNew` the header is taken as checked and
  // valid.
  CArchive(const std::string& fileName, const COutputFile& file, bool isNew, const ArchiveServices& services);
  // The same for whatever gives bytes; one that is new is only written to, in order.
  CArchive(const std::string& name, std::shared_ptr<IByteSource> source, bool isNew,
           const ArchiveServices& services);
  ~CArchive() override;
  CArchive(const CArchive&) = delete;
  CArchive& operator=(const CArchive&) = delete;

  // Reopens the stream.
  void Open(const std::string& fileName, unsigned int mode);
  // Back to offset 0; the next IsValid reads the header again.
  void Reset();
  // Closes the file; a failure is CWriteExcept, so that a full disk does not end as success.
  void Close();

  // Writes the 8 header bytes at the current position.
  void WriteHeader();
  // True iff the file is an archive of this format; reads the header on first use. A version or flavour that
  // only other releases know is CUnsupportedArchiveException.
  bool IsValid();
  const std::array<char, 4>& getVersion() const { return m_version; }
  std::string getVersionString() const { return std::string(m_version.data(), m_version.size()); }

  // True iff the file is entries and nothing else, up to its end: walks the headers and the lengths of the
  // blocks. What is written behind anything else would not be read again. CReadExcept only when reading
  // fails.
  bool IsWhole() { return EndOfWholeEntries() == m_fileSize; }
  // After a failed write: cuts the file at the current position, then behind the last entry that is whole. A
  // stream that cannot be cut or read stays as it is.
  void CutBehindWholeEntries();
  // The first entry, or null: an archive of another format, without entries, or with an unknown first type.
  CDirEntry* First();
  // The next entry, or null at the end. Blocks of the entry before that were not read are skipped. An entry
  // lives until the next one of its class is read.
  CDirEntry* Next();
  // Reads one block of the current entry. 1: more follow; 0: it was the last, `checksum` is the stored CRC.
  int GetEntryData(unsigned char* buffer, unsigned long bufferSize, unsigned long& bytesRead,
                   std::uint32_t& checksum, bool& compressed) override;
  // The same, passed over: for a block that was decompressed ahead. `payloadSize` is what its length must be.
  int PassEntryData(std::uint32_t payloadSize, std::uint32_t& checksum) override;
  // Blocks decompressed ahead of the walk; null where the file or its version does not allow that. What is
  // wanted of the walk is told by WantAllEntries.
  CBlocksAhead* Ahead() override;
  // Whether the walk reads the data of every entry; false where some are passed over.
  void WantAllEntries(bool all) { m_wantsAll = all; }
  // Passes over the block that comes next, if one does, and tells where it lies: for an index. A block that
  // the file does not hold whole is an exception, as it is for Next.
  bool PassBlock(BlockPlace& place);
  // True iff a block comes next: behind the header of an entry without data it is data that the header
  // denies.
  bool BlockFollows();

  const std::string& Name() const { return m_name; }
  CFileStream& Stream() { return m_stream; }
  // The way in for entries that are written; what is in it is in the file once it was drained.
  CArchiveOutput& Output();
  // What an entry of that name is shown as and extracted to, by -lower and -flat.
  std::string ShownName(const std::string& storedName, bool isLink) const;
  // Where the header of the current entry starts.
  std::int64_t EntryStart() const { return m_entryStart; }
  // Position of the stream; CGetFilePosExcept.
  std::int64_t Position() override;
  // True iff the stream stands at the end of the file.
  bool AtEnd();
  // True iff the file was empty when it was opened: there is no entry to read, nor is it open for reading.
  bool IsNew() const { return m_fileSize == 0; }
  // True iff the file is the archive header alone.
  bool IsWithoutEntries() const { return m_fileSize == std::int64_t{kArchiveHeaderSize}; }
  // CSetFilePointerExcept.
  void Seek(std::int64_t position);
  void SeekToEnd();

  const CmdOptions& Options() const { return m_services.options; }
  CCompressMan& Buffers() const { return m_services.buffers; }

  // Regular files that are read or written from now on pass their data to the witness, if there is one.
  IEntryWitness* Witness() const { return m_witness.get(); }
  std::unique_ptr<IEntryWitness> ExchangeWitness(std::unique_ptr<IEntryWitness> witness) {
    return std::exchange(m_witness, std::move(witness));
  }
  // True once a signed manifest was met.
  bool IsSigned() const { return m_signed; }

  // Where an extraction puts things; null while an archive is only read. Not owned.
  void SetTarget(CExtractTarget* target) { m_pTarget = target; }
  CExtractTarget* Target() const { return m_pTarget; }

 private:
  void TakeSize();
  void SetNewHeader();
  std::int64_t EndOfWholeEntries();
  // False when what is there is no whole entry.
  bool PassEntry();
  bool PassBlocks(bool& any, bool& ended);
  bool Pass(std::int64_t count);
  bool TryRead(unsigned char* to, unsigned long count);
  CDirEntry* ReadEntry();
  void ReadEntryName();
  void ReadEntryAccessInfo();
  CDirEntry* EntryFactory();
  void ReadExactly(unsigned char* to, unsigned long count);
  int ReadBlockEnd(BlockType type, std::uint32_t& checksum);
  // Reads 2 bytes; false at the end of the file. A single byte or a failed read is CReadExcept.
  bool ReadType(unsigned char* type);
  void SkipPayload(BlockType type);

  ArchiveServices m_services;
  std::string m_name;
  CFileStream m_stream;
  std::unique_ptr<CArchiveOutput> m_output;
  std::unique_ptr<CBlocksAhead> m_ahead;
  bool m_wantsAll = true;
  std::array<char, 4> m_magic{};
  std::array<char, 4> m_version{};
  bool m_checked = false;
  bool m_valid = false;
  std::int64_t m_fileSize = 0;
  bool m_isFile = false;
  std::int64_t m_entryStart = 0;
  std::array<std::uint8_t, kEntryHeaderSize> m_headerBytes{};
  EntryHeader m_header;
  std::array<char, kMaxNameLength + 1> m_nameBuffer{};
  std::string m_storedName;
  std::string m_shownName;
  std::vector<std::uint8_t> m_accessInfo;
  std::unique_ptr<IEntryWitness> m_witness;
  bool m_signed = false;
  CExtractTarget* m_pTarget = nullptr;
  // One object a class, filled anew for each entry of it.
  std::array<std::unique_ptr<CDirEntry>, static_cast<std::size_t>(EntryClass::kCount)> m_entries;
};

}  // namespace tolven

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "archive/format.h"
#include "fileio/file_stream.h"
#include "fileio/unique_fd.h"
#include "report/system_error.h"

namespace tolven {

class CArchive;
class CLogMan;
class CPendingFile;
class ICompressStrategy;
class IEntryWitness;
class IPackServices;

// What all entries of one packing share.
struct PackContext {
  IPackServices& run;
  ICompressStrategy& strategy;
  // The last directory that -X left out: everything below it is left out too.
  std::string lastExcluded = {};
};

// One member of an archive, on its way in or out: knows its names and its header, writes itself into an
// archive and restores itself on disk.
class CDirEntry {
 public:
  virtual ~CDirEntry();
  CDirEntry(const CDirEntry&) = delete;
  CDirEntry& operator=(const CDirEntry&) = delete;

  // --- Reading.

  // Extracts the entry below archive->Target(), or only checks its data when there is no target. False when
  // it failed in a way that does not end the walk: a digest that differs, a link without a target.
  virtual bool AddToDir(CArchive* archive);
  // Runs the entry's data through CRC and digest and, with `write`, into the data stream.
  virtual void AddToDirEx(CArchive* archive, bool write);
  // Makes the object on disk that the data goes to.
  virtual void CreateEntry(CArchive* archive);
  // Prints the listing line.
  virtual void TypeInfo(CLogMan& log) const;
  // Bytes that an extraction of this entry takes, for the space report.
  virtual double GetSpaceNeeded() const = 0;

  // The name to show and to extract to: the stored name after -lower and -flat.
  virtual const std::string& GetName() const { return m_shownName; }
  // The file that receives the data while the entry is being extracted.
  virtual const std::string& GetTempName() const { return m_tempName; }
  // The name in the archive, byte for byte.
  const std::string& GetStoredName() const { return m_storedName; }
  const EntryHeader& Header() const { return m_header; }
  // Offset of the entry's header in its archive.
  std::int64_t Start() const { return m_start; }

  virtual bool IsSignedManifest() const { return false; }
  virtual bool IsDirectory() const { return false; }
  virtual bool IsLink() const { return false; }
  // True once the entry's data was hashed and, on read, found equal to its record.
  virtual bool IsEntrySigned() const { return false; }
  // True when the entry's data passes the archive's witness.
  virtual bool DoManifestAPI() const { return false; }

  // Fills the entry for one header of an archive. `hash`: its data is to pass the witness.
  virtual void SetReadState(const std::string& storedName, const std::string& shownName,
                            const EntryHeader& header, const std::vector<std::uint8_t>& accessInfo,
                            std::int64_t start, bool hash);

  // --- Writing.

  // Writes header and data, or reports the object as not available. False when -X leaves the entry out, or
  // when the object is not there any more: nothing below it is to be looked for.
  bool AddToArchive(CArchive* archive);
  // How an object is opened, and the type that it must then have. No type: the entry is made in memory.
  struct SourceKind {
    int flags = 0;
    std::uint32_t type = 0;
  };
  virtual SourceKind GetSourceKind() const { return {}; }
  // Fills `header` from the file system; false when the object cannot be examined (errno tells why).
  virtual bool FillEntryHeader(EntryHeader& header) = 0;
  virtual void WriteHeader(CArchive* archive, EntryHeader& header);
  // Puts a link's target behind its name. True, or an exception.
  virtual bool ResolveLink() { return true; }
  // Where the data comes from or goes to. Not owned.
  CFileStream* DataStream() const { return m_pStream; }
  const std::string& GetPath() const { return m_path; }
  static bool CheckIfIsSymlink(const std::string& path);

 protected:
  // To be read.
  CDirEntry();
  // To be written. `pack` must outlive the entry.
  CDirEntry(const std::string& path, PackContext& pack);

  bool FillBaseHeader(EntryHeader& header, EntryType type);
  // Applies -X, -P, -T, -n and -v. True: leave the entry out.
  bool ProcessOptions(CArchive& archive);
  // "x PATH" or "t PATH".
  void PrintVerbose(const CArchive* archive) const;

  std::string m_path;  // on disk
  std::string m_tempName;
  std::string m_storedName;
  std::string m_shownName;
  UniqueFd m_source;  // the object on disk, while it is being archived
  EntryHeader m_header;
  std::vector<std::uint8_t> m_accessInfo;
  std::int64_t m_start = 0;
  CFileStream* m_pStream = nullptr;
  PackContext* m_pPack = nullptr;  // null for an entry that is read
  bool m_signed = false;

 private:
  // Opens m_source. What happens to the name afterwards makes no difference: header, data and a link's target
  // are of one object.
  [[nodiscard]] bool OpenSource();
  void ReportUnknown(CArchive& archive, SystemError error);
  void ReportNotAvailable(CArchive& archive, const std::string& reason);
  // Header, data and digest of a file.
  void WriteFile(CArchive* archive, EntryHeader& header);
  void CloseWitness(IEntryWitness& witness);
  // Decompresses, checks the CRC, writes: the data path of AddToDirEx.
  void DecompressMe(CArchive* archive, bool write);
  void DiscardTarget();

  std::unique_ptr<CPendingFile> m_pending;  // the file that CreateEntry made, until it has its name
};

class CFile : public CDirEntry {
 public:
  CFile() = default;
  // `hash`: the file's data is to pass the archive's witness.
  CFile(const std::string& path, PackContext& pack, bool hash) : CDirEntry(path, pack), m_bDoManifest(hash) {}

  double GetSpaceNeeded() const override { return m_header.DataLength(); }
  bool IsEntrySigned() const override { return m_signed; }
  bool DoManifestAPI() const override { return m_bDoManifest; }
  SourceKind GetSourceKind() const override;
  bool FillEntryHeader(EntryHeader& header) override;
  void SetReadState(const std::string& storedName, const std::string& shownName, const EntryHeader& header,
                    const std::vector<std::uint8_t>& accessInfo, std::int64_t start, bool hash) override;

 private:
  bool m_bDoManifest = false;
};

class CDirectory : public CDirEntry {
 public:
  CDirectory() = default;
  CDirectory(const std::string& path, PackContext& pack) : CDirEntry(path, pack) {}

  void CreateEntry(CArchive* archive) override;
  double GetSpaceNeeded() const override { return m_header.DataLength(); }
  bool IsDirectory() const override { return true; }
  SourceKind GetSourceKind() const override;
  bool FillEntryHeader(EntryHeader& header) override;
};

// A symbolic link. Its target travels in the name, behind a vertical bar; it has no data.
class CLink : public CDirEntry {
 public:
  CLink() = default;
  CLink(const std::string& path, PackContext& pack) : CDirEntry(path, pack) {}

  bool AddToDir(CArchive* archive) override;
  double GetSpaceNeeded() const override { return m_header.DataLength(); }
  bool IsLink() const override { return true; }
  SourceKind GetSourceKind() const override;
  bool FillEntryHeader(EntryHeader& header) override;
  bool ResolveLink() override;
};

}  // namespace tolven

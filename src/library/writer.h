#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "archive/entry_data.h"
#include "cmdline/run_services.h"
#include "fileio/pending_file.h"
#include "library/handle.h"
#include "library/source.h"
#include "main/factories.h"
#include "report/user_info.h"

namespace tolven {

// An archive that a caller writes, by the program's own entries: the handle is the run that they ask. Members
// throw; see CHandle::Call.
class CWriter : public CHandle, private IPackServices {
 public:
  using ReadData = std::int64_t (*)(void* context, void* buffer, std::size_t size);

  explicit CWriter(const tolven_options& options);
  ~CWriter() override;

  void Create(const char* path);
  void Create(UniqueFd file);
  void Create(const tolven_callbacks& callbacks);
  void AddPath(const char* path, std::string name);
  void AddEntry(const tolven_entry& entry, ReadData read, void* context);
  void Finish();
  void Abort();

 private:
  const CmdOptions& Options() const override { return m_cmdOptions; }
  CStatistics& Statistics() override { return m_statistics; }
  bool ExcludeThis(const std::string&) const override { return false; }
  bool FindNewName(const std::string& oldName, std::string& newName) const override;
  void FileNotAvail(const std::string& name, const std::string& reason) override;
  bool ScanOnly() const override { return false; }

  void Begin(const std::string& name, std::shared_ptr<CSource> source);
  void Add(CDirEntry& entry);

  const CEntryFactory m_factory;
  CCompressMan m_buffers;
  CStatistics m_statistics;
  CNormalCompress m_compress;
  PackContext m_pack;
  std::optional<CExtractRoot> m_root;
  std::optional<CPendingFile> m_pending;  // of an archive at a path
  std::optional<CArchive> m_archive;
  bool m_broken = false;
  std::string m_newName;      // of the entry that is being added
  std::string m_unavailable;  // why it could not be
};

}  // namespace tolven

#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "archive/compress_man.h"
#include "archive/dir_entry.h"
#include "archive/entry_factory.h"
#include "archive/normal_compress.h"
#include "cmdline/run_services.h"
#include "fileio/utils.h"

namespace tolven {

class CArchive;
class ISignature;

// -c, -a and -S: writes an archive from files, directories and links, appends to one, or signs one.
class CCreate : public CCommand {
 public:
  // All of them must outlive the command.
  CCreate(IRunServices& run, const IEntryFactory& factory, const ISignature& signature)
      : m_run(run), m_factory(factory), m_signature(signature) {}
  void Execute() override;

 private:
  // Device and inode: what tells two names of one object.
  using Identity = std::pair<dev_t, ino_t>;
  // A directory on the way down, and what of it is still to be archived.
  struct Level {
    Identity identity;   // none for what a pattern names: it may match only a part of its directory
    std::string prefix;  // in front of every name
    std::vector<std::string> names;
    std::size_t next = 0;
  };

  // Opens and locks the archive as the command needs it; nothing is cut by that. False with errno.
  bool Open(COutputFile& file, const std::string& name) const;
  // Refuses what is there unless entries may follow it.
  void JudgeExisting(CArchive& archive) const;
  void WriteArchive(CArchive& archive, bool isNew);
  void WriteEntries(CArchive& archive);
  // Leaves a failed archive with what it had, or with whole entries only.
  void GiveUp(CArchive& archive, std::int64_t start);
  void AddName(const std::string& name, CArchive& archive);
  // Archives one object. What is below it, when it is a directory, becomes the next level.
  void AddObject(const std::string& path, CArchive& archive);
  void Descend(const std::string& directory, CArchive& archive);
  void ReportNotAvailable(CArchive& archive, const std::string& path, const std::string& reason) const;
  // Takes what a pattern matches, "." and ".." left out, in the order the file system tells.
  void PushLevel(CArchive& archive, const FindHandle& directory, strFileData& data,
                 const std::string& pattern, Identity identity);
  // Archives all levels.
  void ProcessDirectory(CArchive& archive);
  std::unique_ptr<CDirEntry> CreateFileObject(const std::string& name, int type, CArchive& archive);

  IRunServices& m_run;
  const IEntryFactory& m_factory;
  const ISignature& m_signature;
  CCompressMan m_buffers;
  CNormalCompress m_strategy;
  PackContext m_pack{m_run, m_strategy};
  std::vector<Level> m_levels;
};

}  // namespace tolven

#pragma once

// The commands over archives. Each has a source of its own: create.cpp, extract.cpp, type.cpp, merge.cpp and
// scan.cpp.

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "archive/entry_data.h"
#include "cmdline/run_services.h"
#include "fileio/utils.h"
#include "report/space_info.h"

namespace tolven {

class CExtractTarget;
class CSelection;
class ISignature;

// What the commands over archives of the current format have in common.
class CArchiveCommand : public CCommand {
 protected:
  // All of them must outlive the command.
  CArchiveCommand(IRunServices& run, const IEntryFactory& factory, const ISignature& signature)
      : m_run(run), m_signature(signature), m_factory(factory) {}

  ArchiveServices Services() { return {m_factory, m_run.Options(), m_buffers}; }
  // "TOLVEN: processing archive NAME (version V)", once an archive is found valid.
  static void PrintProcessingLine(const CArchive& archive);

  IRunServices& m_run;
  const ISignature& m_signature;
  CCompressMan m_buffers;

 private:
  const IEntryFactory& m_factory;
};

// -c, -a and -S: writes an archive from files, directories and links, appends to one, or signs one.
class CCreate : public CArchiveCommand {
 public:
  CCreate(IRunServices& run, const IEntryFactory& factory, const ISignature& signature)
      : CArchiveCommand(run, factory, signature) {}
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

  CNormalCompress m_strategy;
  PackContext m_pack{m_run, m_strategy};
  std::vector<Level> m_levels;
};

// -x and -d: extracts archives, or only checks their data. Archives of the older format go to their own
// reader.
class CExtract : public CArchiveCommand {
 public:
  CExtract(IRunServices& run, const IEntryFactory& factory, const ISignature& signature)
      : CArchiveCommand(run, factory, signature) {}
  void Execute() override;

 private:
  struct Counts {
    unsigned long good = 0;
    unsigned long failed = 0;
    unsigned long invalid = 0;  // files that differ from the signed manifest; failed ones too
    unsigned long directories = 0;
    unsigned long links = 0;
  };

  void ProcessArchive(const std::string& name);
  // CInvalExcept for a file of another format.
  void ProcessCurrent(const std::string& name);
  void WalkAndFinish(CArchive& archive, CExtractTarget* target, Counts& counts);
  void Walk(CArchive& archive, CSelection& selection, Counts& counts);
  void ProcessEntry(CArchive& archive, CDirEntry& entry, Counts& counts);
  void PrintResult(const Counts& counts) const;
  void PrintUncovered(const Counts& counts) const;
  void PrintIncomplete() const;
  bool IsTest() const { return m_run.Command() == CMD_TEST; }
};

// -t: lists archives; with -V each file is checked while it is listed, with -s the space report follows.
class CType : public CArchiveCommand {
 public:
  CType(IRunServices& run, const IEntryFactory& factory, const ISignature& signature,
        const IDiskProbe& probe);
  void Execute() override;

 private:
  void ListArchive(const std::string& name);
  // CInvalExcept for a file of another format.
  void ListCurrent(const std::string& name);
  void ListEntries(CArchive& archive);

  CSpaceInfo m_spaceInfo;
  bool m_spaceCheck;
};

// -m: appends all entries of one archive to another. There is no index: the merge is a byte copy.
class CMerge : public CArchiveCommand {
 public:
  CMerge(IRunServices& run, const IEntryFactory& factory, const ISignature& signature)
      : CArchiveCommand(run, factory, signature) {}
  void Execute() override;

 private:
  void Copy(CArchive& source, CArchive& target);
};

// -l: writes the names that do not exist to "files.log". Ends with 0 whatever is missing.
class CScan : public CCommand {
 public:
  explicit CScan(IRunServices& run) : m_run(run) {}
  void Execute() override;

 private:
  bool IsPresent(const std::string& name) const;

  IRunServices& m_run;
};

}  // namespace tolven

#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "archive/entry_factory.h"
#include "fileio/utils.h"
#include "main/run/command.h"
#include "main/run/processor.h"

namespace tolven {

class CArchive;
class CDirEntry;

// -c, -a and -S: writes an archive from files, directories and links, appends to one, or signs one.
class CCreate : public CCommand {
 public:
  // `factory` must outlive the command.
  CCreate(CProcessor* processor, const IEntryFactory& factory)
      : m_pProcessor(processor), m_factory(factory) {}
  void Execute() override;

 private:
  // Device and inode: what tells two names of one object.
  using Identity = std::pair<dev_t, ino_t>;
  struct Hit {
    std::string path;
    std::uint32_t attributes;
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
  // What a pattern matches, "." and ".." left out, in the order the file system tells.
  std::vector<Hit> Scan(const std::string& pattern) const;
  void ProcessDirectory(const std::string& pattern, CArchive& archive);
  // Archives one object, and what is below it when it is a directory.
  void AddObject(const Hit& hit, CArchive& archive);
  void Descend(const std::string& directory, CArchive& archive);
  std::unique_ptr<CDirEntry> CreateFileObject(const std::string& name, int type, CArchive& archive) const;

  CProcessor* m_pProcessor;
  const IEntryFactory& m_factory;
  std::vector<Identity> m_ancestors;  // directories being descended into
};

}  // namespace tolven

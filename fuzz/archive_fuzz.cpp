// Any bytes as an archive: listed and tested. An exception is an answer; everything else is a fault.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "main/run/processor.h"
#include "report/except.h"

namespace {

class Factory : public tolven::IEntryFactory {
 public:
  bool IsTypeManifest(const tolven::EntryHeader&, std::string_view,
                      std::span<const std::uint8_t>) const override {
    return false;
  }
  std::unique_ptr<tolven::CDirEntry> NewEntry(tolven::EntryClass entryClass) const override {
    if (entryClass == tolven::EntryClass::kDirectory) return std::make_unique<tolven::CDirectory>();
    if (entryClass == tolven::EntryClass::kLink) return std::make_unique<tolven::CLink>();
    return std::make_unique<tolven::CFile>();
  }
};

void Walk(const std::string& path, bool test) {
  const Factory factory;
  try {
    tolven::CArchive archive(path, tolven::kOpenRead, factory,
                             tolven::CProcessor::GetTheProcessor()->Options());
    for (tolven::CDirEntry* entry = archive.First(); entry != nullptr; entry = archive.Next()) {
      entry->TypeInfo();
      if (test) entry->AddToDir(&archive);
    }
  } catch (const tolven::CExcept&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const int file = memfd_create("archive", 0);
  if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size)) return 0;
  tolven::CProcessor& processor = *tolven::CProcessor::GetTheProcessor();
  processor.SetLogManager(std::make_unique<tolven::CAPILogMan>());
  {
    const tolven::CEntryServices services(processor);
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    Walk(path, false);
    Walk(path, true);
  }
  close(file);
  return 0;
}

#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "archive/archive.h"
#include "archive/dir_entry.h"
#include "main/run/processor.h"

namespace tolven::test {

// Writes archive files field by field, good ones and bad ones.
class ArchiveBytes {
 public:
  explicit ArchiveBytes(std::string header = "ORV 2.01") : m_bytes(std::move(header)) {}

  ArchiveBytes& Number(std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) m_bytes += static_cast<char>(value >> (8 * i));
    return *this;
  }
  ArchiveBytes& Raw(const std::string& bytes) {
    m_bytes += bytes;
    return *this;
  }
  ArchiveBytes& Entry(const std::string& type, const std::string& name, std::uint64_t size,
                      std::uint32_t mode = 0100644, const std::string& accessInfo = "") {
    return EntryFields(type, mode, size, 0, accessInfo.size(), name.size() + 1)
        .Raw(name)
        .Number(0, 1)
        .Raw(accessInfo);
  }
  ArchiveBytes& EntryFields(const std::string& type, std::uint32_t mode, std::uint64_t size,
                            std::uint32_t sizeHigh, std::size_t accessLength, std::size_t nameLength) {
    return Raw(type).Number(mode, 4).Number(size, 8).Number(sizeHigh, 4).Number(1577873220, 8).Number(0, 4)
        .Number(accessLength, 2).Number(nameLength, 2);
  }
  ArchiveBytes& Block(const std::string& type, const std::string& payload) {
    return Raw(type).Number(payload.size(), 4).Raw(payload);
  }
  ArchiveBytes& Crc(std::uint32_t crc) { return Number(crc, 4); }
  const std::string& Bytes() const { return m_bytes; }

 private:
  std::string m_bytes;
};

class Factory : public IEntryFactory {
 public:
  bool IsTypeManifest(const EntryHeader&, std::string_view storedName,
                      std::span<const std::uint8_t>) const override {
    return storedName == "MANIFEST";
  }
  std::unique_ptr<CDirEntry> NewEntry(EntryClass entryClass) const override {
    if (entryClass == EntryClass::kDirectory) return std::make_unique<CDirectory>();
    if (entryClass == EntryClass::kLink) return std::make_unique<CLink>();
    return std::make_unique<CFile>();
  }
};

// A processor with a collecting log, entry services, and a fresh working directory: what every test here needs.
class Run {
 public:
  Run() {
    std::string pattern = "/tmp/tolven-archive-XXXXXX";
    m_directory = mkdtemp(pattern.data());
    if (chdir(m_directory.c_str()) != 0) std::abort();
    CProcessor* processor = CProcessor::GetTheProcessor();
    auto log = std::make_unique<CAPILogMan>();
    m_log = log.get();
    processor->SetLogManager(std::move(log));
    m_services = std::make_unique<CEntryServices>(*processor);
  }
  ~Run() {
    m_services.reset();
    CProcessor::Destroy();
    if (chdir("/") != 0 || std::system(("rm -rf " + m_directory).c_str()) != 0) std::abort();
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  CmdOptions& Options() { return CProcessor::GetTheProcessor()->CmdLine().MutableOptions(); }
  const std::string& Output() const { return m_log->GetOutput(); }
  int ExitCode() const { return CProcessor::GetTheProcessor()->ExitCode(); }
  // Opens an archive of these bytes.
  CArchive& Open(const std::string& bytes) {
    m_archive.reset();
    std::ofstream("a.vra", std::ios::binary) << bytes;
    m_archive = std::make_unique<CArchive>("a.vra", kOpenRead, m_factory, Options());
    return *m_archive;
  }

 private:
  std::string m_directory;
  Factory m_factory;
  CAPILogMan* m_log = nullptr;
  std::unique_ptr<CEntryServices> m_services;
  std::unique_ptr<CArchive> m_archive;
};

}  // namespace tolven::test

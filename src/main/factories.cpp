#include "main/factories.h"

#include "archive/commands/commands.h"
#include "cmdline/cmd_line.h"
#include "signing/signature_verify.h"

namespace tolven {

bool CEntryFactory::IsTypeManifest(const EntryHeader& header, std::string_view storedName,
                                   std::span<const std::uint8_t> accessInfo) const {
  return CSignedManifest::IsTypeManifest(header, storedName, accessInfo);
}

std::unique_ptr<CDirEntry> CEntryFactory::NewEntry(EntryClass entryClass) const {
  switch (entryClass) {
    case EntryClass::kDirectory:
      return std::make_unique<CDirectory>();
    case EntryClass::kLink:
      return std::make_unique<CLink>();
    case EntryClass::kSignedManifest:
      return std::make_unique<CSignedManifest>();
    case EntryClass::kFile:
    case EntryClass::kCount:
      break;
  }
  return std::make_unique<CFile>();
}

namespace {

using Maker = std::unique_ptr<CCommand> (*)(IRunServices& run, const CCommandFactory& parts);

std::unique_ptr<CCommand> MakeCreate(IRunServices& run, const CCommandFactory& parts) {
  return std::make_unique<CCreate>(run, parts.Entries(), parts.Signature());
}
std::unique_ptr<CCommand> MakeExtract(IRunServices& run, const CCommandFactory& parts) {
  return std::make_unique<CExtract>(run, parts.Entries(), parts.Signature());
}
std::unique_ptr<CCommand> MakeType(IRunServices& run, const CCommandFactory& parts) {
  return std::make_unique<CType>(run, parts.Entries(), parts.Signature(), parts.Probe());
}
std::unique_ptr<CCommand> MakeMerge(IRunServices& run, const CCommandFactory& parts) {
  return std::make_unique<CMerge>(run, parts.Entries(), parts.Signature());
}
std::unique_ptr<CCommand> MakeScan(IRunServices& run, const CCommandFactory&) {
  return std::make_unique<CScan>(run);
}
std::unique_ptr<CCommand> MakeSignatureVerify(IRunServices& run, const CCommandFactory&) {
  return std::make_unique<CSignatureVerify>(run);
}

struct CommandRow {
  int code;
  char letter;
  Maker maker;
};
constexpr CommandRow kCommands[] = {
    {CMD_CREATE, 'c', MakeCreate},
    {CMD_TEST, 'd', MakeExtract},
    {CMD_EXTRACT, 'x', MakeExtract},
    {CMD_LIST, 't', MakeType},
    {CMD_APPEND, 'a', MakeCreate},
    {CMD_MERGE, 'm', MakeMerge},
    {CMD_SCAN, 'l', MakeScan},
    {CMD_SIGN, 'S', MakeCreate},
    {CMD_VERIFY_MANIFEST, 'M', MakeSignatureVerify},
};

}  // namespace

std::unique_ptr<CCommand> CCommandFactory::MakeCommand(int code, IRunServices& run) const {
  for (const CommandRow& row : kCommands) {
    if (row.code == code) return row.maker(run, *this);
  }
  return nullptr;
}

}  // namespace tolven

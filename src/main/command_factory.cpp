#include "main/command_factory.h"

#include "archive/commands/create.h"
#include "archive/commands/extract.h"
#include "archive/commands/merge.h"
#include "archive/commands/scan.h"
#include "archive/commands/type.h"
#include "cmdline/cmd_line.h"
#include "signing/signature_verify.h"

namespace tolven {

namespace {

using Maker = std::unique_ptr<CCommand> (*)(CProcessor& processor, const CCommandFactory& parts);

std::unique_ptr<CCommand> MakeCreate(CProcessor& processor, const CCommandFactory& parts) {
  return std::make_unique<CCreate>(&processor, parts.Entries());
}
std::unique_ptr<CCommand> MakeExtract(CProcessor& processor, const CCommandFactory& parts) {
  return std::make_unique<CExtract>(processor, parts.Entries());
}
std::unique_ptr<CCommand> MakeType(CProcessor& processor, const CCommandFactory& parts) {
  return std::make_unique<CType>(processor, parts.Entries(), parts.Probe());
}
std::unique_ptr<CCommand> MakeMerge(CProcessor& processor, const CCommandFactory& parts) {
  return std::make_unique<CMerge>(processor, parts.Entries());
}
std::unique_ptr<CCommand> MakeScan(CProcessor& processor, const CCommandFactory&) {
  return std::make_unique<CScan>(processor);
}
std::unique_ptr<CCommand> MakeSignatureVerify(CProcessor& processor, const CCommandFactory&) {
  return std::make_unique<CSignatureVerify>(processor);
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

std::unique_ptr<CCommand> CCommandFactory::MakeCommand(int code, CProcessor& processor) const {
  for (const CommandRow& row : kCommands) {
    if (row.code == code) return row.maker(processor, *this);
  }
  return nullptr;
}

}  // namespace tolven

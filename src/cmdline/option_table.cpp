#include "cmdline/option_table.h"

namespace tolven {
namespace {

using Opt = CmdOptions;
using Kind = OptionKind;

constexpr FlagEffects Set(bool Opt::*member) {
  return {FlagEffect{member, true}, FlagEffect{}};
}
constexpr FlagEffects Clear(bool Opt::*member) {
  return {FlagEffect{member, false}, FlagEffect{}};
}

// The effects that both tables name.
// No letter behind it takes the demand for a signature back.
constexpr FlagEffects kVerify = {FlagEffect{&Opt::verifyAsked, true},
                                 FlagEffect{&Opt::verifySignature, true}};
constexpr FlagEffects kVerbose = Set(&Opt::verbose);
constexpr FlagEffects kIgnoreCase = Set(&Opt::ignoreCase);
constexpr FlagEffects kStatistics = Set(&Opt::printStatistics);
constexpr FlagEffects kKeepDirModes = Clear(&Opt::changeDirPermissions);
constexpr FlagEffects kForce = {FlagEffect{&Opt::forceExtraction, true},
                                FlagEffect{&Opt::changeDirPermissions, false}};

constexpr LongOption kLongOptions[] = {
    {"-X", Kind::kText, {}, &Opt::excludeFile},
    {"-backup", Kind::kIgnored},
    {"-lower", Kind::kFlags, Set(&Opt::lowerCase)},
    {"-flat", Kind::kFlags, Set(&Opt::flat)},
    {"-xnopvalid", Kind::kFlags, Set(&Opt::noPathValidation)},
    {"-V", Kind::kFlags, kVerify},
    {"-v", Kind::kFlags, kVerbose},
    {"-e", Kind::kFlags, Set(&Opt::redirectOutput)},
    {"-g", Kind::kFlags, kIgnoreCase},
    {"-h", Kind::kFlags, kKeepDirModes},
    {"-j", Kind::kFlags, kForce},
    {"-n", Kind::kFlags, kStatistics},
    {"-T", Kind::kText, {}, &Opt::renameFile},
    {"-P", Kind::kFlags, Set(&Opt::absolutePaths)},
    {"-p", Kind::kPermission},
    {"-C", Kind::kText, {}, &Opt::sourceDir},
    {"-f", Kind::kText, {}, &Opt::archiveText},
    {"-A", Kind::kText, {}, &Opt::includeFile},
    {"-R", Kind::kText, {}, &Opt::targetDir},
    {"-H", Kind::kText, {}, &Opt::hashAlgorithm},
    {"-key", Kind::kKey, {}, &Opt::key},
    {"-L", Kind::kText, {}, &Opt::securityLibrary},
    {"-pwd", Kind::kPassword, {}, &Opt::password},
    {"-y", Kind::kText, {}, &Opt::signatureHashAlgorithm},
    {"-manifest", Kind::kText, {}, &Opt::manifestFile},
    {"-crl", Kind::kText, {}, &Opt::crlFile},
    {"-F", Kind::kText, {}, &Opt::fText},
    {"-tsaurl", Kind::kUrl, {}, &Opt::tsaUrl},
    {"-proxy", Kind::kUrl, {}, &Opt::proxyUrl},
};

constexpr LetterOption kLetterOptions[] = {
    {'c', CMD_CREATE},
    {'d', CMD_TEST},
    {'x', CMD_EXTRACT},
    {'t', CMD_LIST},
    {'a', CMD_APPEND},
    {'m', CMD_MERGE},
    {'l', CMD_SCAN},
    {'M', CMD_NONE, kVerify},
    {'S', CMD_NONE, Set(&Opt::sign)},
    {'V', CMD_NONE, kVerify},
    {'f'},
    {'g', CMD_NONE, kIgnoreCase},
    {'h', CMD_NONE, kKeepDirModes},
    {'i', CMD_NONE, Set(&Opt::ignoreInaccessible)},
    {'j', CMD_NONE, kForce},
    {'n', CMD_NONE, kStatistics},
    {'r', CMD_NONE, Clear(&Opt::resolveLinks)},
    {'s', CMD_NONE, Set(&Opt::spaceCheck)},
    {'v', CMD_NONE, kVerbose},
};

}  // namespace

std::span<const LongOption> LongOptions() {
  return kLongOptions;
}

std::span<const LetterOption> LetterOptions() {
  return kLetterOptions;
}

}  // namespace tolven

#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tolven {

class CArchive;
class CDirEntry;
class CSelection;
class IRunServices;
struct PackContext;

// What the archive and the commands know of signatures: two interfaces that the signing floor implements.

// Sees every file of an archive go by, in either direction, and says in the end whether all is as it should
// be. An archive may have one; it then owns it. Calls come from one thread, in the order of the entries: the
// n-th file of a name answers to the n-th record of that name.
class IEntryWitness {
 public:
  virtual ~IEntryWitness() = default;
  // The data of a file of that stored name follows. False: it has no record, and neither Update nor Close
  // follows.
  virtual bool Open(const std::string& storedName) = 0;
  // The next uncompressed bytes; none at all for an empty file. Failure is CInvalManifestExcept.
  virtual void Update(std::span<const std::uint8_t> data) = 0;
  // True iff the file is now recorded or, on read, is what its record says.
  virtual bool Close() = 0;
  // A file of that name goes by unseen: a later one of the same name still answers to its own record.
  virtual void Pass(const std::string& storedName) = 0;
  // Raises what the last Open or Close said false about, as CInvalManifestExcept: while an archive is written
  // no file may stay unrecorded. `withReason` adds the reason to `detail`.
  [[noreturn]] virtual void Raise(const std::string& detail, bool withReason) const = 0;
  // At the end: CInvalManifestExcept unless all is well. `failed`: files that the caller saw fail.
  // With `selection` it also fails when a listed file that the selection takes was not met; such files are
  // added to `failed`.
  virtual void Verdict(const CArchive& archive, const CSelection* selection, unsigned long& failed) = 0;
};

// The flows that sign and verify, each called at its fixed point by the commands. Failures are exceptions.
class ISignature {
 public:
  virtual ~ISignature() = default;
  // True when the run's options ask for a signature to be made.
  virtual bool IsSigning(const IRunServices& run) const = 0;
  // Before a run goes elsewhere for what it packs: keys and trust of relative names lie in this directory.
  virtual void SetStartDirectory(const std::string& directory) const = 0;
  // Before the first entry. Reading: checks the signature of a signed archive and gives the archive the
  // witness that checks its entries. Writing: gives it the witness that the entries will feed, hashes what an
  // archive to be appended to or signed already holds, and leaves the write position where the next entry
  // goes.
  virtual void VerifyArchiveSignature(bool writing, CArchive& archive, IRunServices& run) const = 0;
  // With an entry: runs its data through the digest and counts it when it is not listed or differs. Without:
  // raises what was counted; with `selection` also when a listed file that it takes was not met.
  virtual void CheckErrors(CArchive& archive, CDirEntry* entry, unsigned long& counter,
                           const CSelection* selection) const = 0;
  // An entry that was not selected goes by: a later one of its name still answers to its own record.
  virtual void PassEntry(CArchive& archive, const CDirEntry& entry) const = 0;
  // At the end of a listing, test or extraction: who signed, with -v.
  virtual void PrintMessage(CArchive& archive, IRunServices& run) const = 0;
  // After the last entry: signs and writes the entry.
  virtual void CreateArchiveSignature(CArchive& archive, IRunServices& run, PackContext& pack) const = 0;
  // Raises CExcept(message, exitCode) when the archive is signed and must not be, or the other way round.
  virtual void CheckArchiveSigned(CArchive& archive, bool mustBeSigned, const std::string& message,
                                  int exitCode) const = 0;
};

}  // namespace tolven

#pragma once

#include <memory>
#include <string>

#include "cmdline/cmd_line.h"

namespace tolven {

class CLogMan;
class COutputFile;
class CStatistics;

// What an object on its way into an archive asks of the run. An entry sees no more of it than this.
class IPackServices {
 public:
  virtual ~IPackServices() = default;
  virtual const CmdOptions& Options() const = 0;
  virtual CStatistics& Statistics() = 0;
  // True iff `name` equals an entry of the exclude list.
  virtual bool ExcludeThis(const std::string& name) const = 0;
  // Looks `oldName` up in the rename list; true iff there, with `newName` set.
  virtual bool FindNewName(const std::string& oldName, std::string& newName) const = 0;
  // Reports a file that cannot be read, and switches to scan-only mode unless -i is given.
  virtual void FileNotAvail(const std::string& name, const std::string& reason) = 0;
  // Set once an inaccessible file was met without -i: the rest of the input is only checked.
  virtual bool ScanOnly() const = 0;
};

// What the commands, and the floors they stand on, use of the run. The processor implements it, high above
// all of them; whoever embeds a command may give it something smaller.
class IRunServices : public IPackServices {
 public:
  virtual CCmdLine& CmdLine() = 0;
  virtual CLogMan& LogManager() = 0;
  virtual int Command() const = 0;
  virtual int ExitCode() const = 0;
  virtual void SetExitCode(int code) = 0;
  // The -f text, cut to 4351 characters, or "DEFAULT.VRA": the one name that create, append and sign use.
  virtual const char* ArchiveName() const = 0;
  // The archive that a create, an append or a signing writes. It stays locked until the run has nothing more
  // to do with it: until a failed one is removed, too.
  virtual COutputFile& ArchiveFile() = 0;
  // The directory the user started in; empty when it could not be determined.
  virtual const std::string& StartDirectory() const = 0;
};

// One command of the program. An object lives for one run.
class CCommand {
 public:
  virtual ~CCommand() = default;
  // Reports failure by throwing a CExcept.
  virtual void Execute() = 0;
};

// Makes the command of a command code. The run knows only this; the concrete commands plug in from above.
class ICommandFactory {
 public:
  virtual ~ICommandFactory() = default;
  // Null for a code without a command.
  virtual std::unique_ptr<CCommand> MakeCommand(int code, IRunServices& run) const = 0;
};

}  // namespace tolven

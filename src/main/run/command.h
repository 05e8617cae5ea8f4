#pragma once

#include <memory>

namespace tolven {

class CProcessor;

// One command of the program. An object lives for one run.
class CCommand {
 public:
  virtual ~CCommand() = default;
  // Reports failure by throwing a CExcept.
  virtual void Execute() = 0;
};

// Makes the command of a command code. The processor knows only this; the concrete commands plug in from
// above.
class ICommandFactory {
 public:
  virtual ~ICommandFactory() = default;
  // Null for a code without a command.
  virtual std::unique_ptr<CCommand> MakeCommand(int code, CProcessor& processor) const = 0;
};

}  // namespace tolven

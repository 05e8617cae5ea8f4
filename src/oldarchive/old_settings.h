#pragma once

#include <memory>
#include <string>

#include "main/run/processor.h"
#include "oldarchive/app_data.h"
#include "report/except.h"

namespace tolven {

// The settings of the run for the archive `archive`, taken from the command line; `command` is the flat
// library's letter. Every entry that succeeds counts in the processor's statistics; the processor must
// outlive the result.
std::unique_ptr<AppData> MakeAppData(CProcessor& processor, const std::string& archive, char command);

// The exception for a failure of the flat library: its message with the program's prefix, its number.
CExcept MakeOldExcept(int error, const std::string& text);

// Under -V an archive of the older format has nothing to show, however sound it is: an old archive put in
// place of a signed one must not pass.
CExcept MakeNotSignedExcept(const std::string& archive);

}  // namespace tolven
